#include "multimedia/mediahandler/cmediaresample.h"

#include "multimedia/mediahandler/mediaerror.h"

void CMediaResample::setSrcopt(long long layout, int rate, AVSampleFormat format)
{
    source = {uint64_t(layout), format, rate};
}

void CMediaResample::setDstopt(long long layout, int rate, AVSampleFormat format)
{
    destination = {uint64_t(layout), format, rate};
}

int CMediaResample::initOpt()
{
    context = multimedia::makeResampler(destination, source);
    if (!context)
        return mediaError(AVERROR_BUG);
    const int result = swr_init(context.get());
    if (result < 0) {
        context.reset();
        return mediaError(result);
    }
    return 0;
}

int CMediaResample::convert(uint8_t** out, int outCount, uint8_t** in, int inCount)
{
    if (!context)
        return -1;
    const int result = swr_convert(context.get(), out, outCount, const_cast<const uint8_t**>(in), inCount);
    return result < 0 ? mediaError(result) : result;
}

void CMediaResample::reset()
{
    context.reset();
    source = kUnset;
    destination = kUnset;
}
