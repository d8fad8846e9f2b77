#include "multimedia/mediahandler/cmediascale.h"

#include "multimedia/mediahandler/mediaerror.h"

void CMediaScale::setSrcOpt(AVPixelFormat format, int width, int height)
{
    source = {format, width, height};
}

void CMediaScale::setDestOpt(AVPixelFormat format, int width, int height)
{
    destination = {format, width, height};
}

int CMediaScale::preScale()
{
    context = multimedia::makeScaler(source, destination, SWS_FAST_BILINEAR);
    return context ? 0 : mediaError(AVERROR_BUG);
}

int CMediaScale::scale(const uint8_t* const* src, const int* srcStride, int srcSliceY, int srcSliceH,
                       uint8_t* const* dst, const int* dstStride)
{
    if (!context) {
        const int result = preScale();
        if (result < 0)
            return result;
    }
    const int result = sws_scale(context.get(), src, srcStride, srcSliceY, srcSliceH, dst, dstStride);
    return result < 0 ? mediaError(result) : result;
}
