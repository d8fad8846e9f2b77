#include "multimedia/mediahandler/mediaerror.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

int mediaError(int code, int line)
{
    const bool expected = code == AVERROR(EAGAIN) || code == AVERROR_EOF;
    av_log(nullptr, expected ? AV_LOG_DEBUG : AV_LOG_ERROR, "%s %d : %d\n", "multimedia/mediahandler", line,
           code);
    return code;
}
