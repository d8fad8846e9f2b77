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
    // What FFmpeg does not know it does not refuse, it ends the process.
    if (!sws_isSupportedInput(source.format) || !sws_isSupportedOutput(destination.format))
        return mediaError(AVERROR_BUG);
    context.reset(sws_getContext(source.width, source.height, source.format, destination.width,
                                 destination.height, destination.format, SWS_FAST_BILINEAR, nullptr, nullptr,
                                 nullptr));
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
