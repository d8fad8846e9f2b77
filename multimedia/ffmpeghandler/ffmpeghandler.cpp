#include "multimedia/ffmpeghandler/ffmpeghandler.h"

#include "multimedia/base/warning.h"

#include <QtCore/QLoggingCategory>

namespace {
constexpr int kFrameAlignment = 32;
}

FfmpegHandler::FfmpegHandler()
    : formatContext(avformat_alloc_context())
{}

FfmpegHandler::~FfmpegHandler()
{
    close();
}

void FfmpegHandler::close()
{
    swsContext.reset();
    videoFrame.reset();
    rgbFrame.reset();
    videoCodecContext.reset();
    audioCodecContext.reset();
    rgbBuffer.reset();
    formatContext.reset();
}

bool FfmpegHandler::initVideoFrame()
{
    freeVideoFrame();
    multimedia::FrameHandle frame = multimedia::createFrame();
    if (!frame) {
        qCDebug(MultimediaCategoryLogging, "av_frame_alloc failed.");
        return false;
    }
    if (videoCodecContext) {
        frame->format = videoCodecContext->pix_fmt;
        frame->width = videoCodecContext->width;
        frame->height = videoCodecContext->height;
    }
    frame->pts = 0;
    if (av_frame_get_buffer(frame.get(), kFrameAlignment) < 0) {
        qCDebug(MultimediaCategoryLogging, "could not allocate frame data.");
        return false;
    }
    videoFrame = std::move(frame);
    return true;
}

void FfmpegHandler::freeVideoFrame()
{
    videoFrame.reset();
}
