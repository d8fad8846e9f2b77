#pragma once

#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/mediahandle.h"

/// Plain holder of one open media file and of what decodes and converts its pictures.
///
/// Whoever opens the file fills the fields; the handler only owns and releases them. One thread at a time.
class FfmpegHandler
{
public:
    FfmpegHandler();
    ~FfmpegHandler();
    FfmpegHandler(const FfmpegHandler&) = delete;
    FfmpegHandler& operator=(const FfmpegHandler&) = delete;

    /// Releases all that is owned, the file last; may be called again. The three stream indices,
    /// `videoStream` and `audioStream` keep their values, of which the two pointers may not be followed
    /// any more.
    void close();

    /// Makes `videoFrame` anew, with room for a picture of `videoCodecContext` and `pts` 0. False, with
    /// `videoFrame` null and a debug line, when there is no decoder or no memory.
    bool initVideoFrame();
    void freeVideoFrame();

    /// An empty context after construction, null after `close`.
    multimedia::InputPtr formatContext;
    multimedia::CodecContextPtr videoCodecContext;
    const AVCodec* videoCodec = nullptr;
    multimedia::CodecContextPtr audioCodecContext;
    const AVCodec* audioCodec = nullptr;
    /// -1: none.
    int videoStreamIndex = -1;
    int audioStreamIndex = -1;
    int subtitleStreamIndex = -1;
    /// The decoded picture.
    multimedia::FrameHandle videoFrame;
    /// The converted picture; its pixels are `rgbBuffer`.
    multimedia::FrameHandle rgbFrame;
    multimedia::BufferPtr rgbBuffer;
    multimedia::SwsContextPtr swsContext;
    /// Belong to `formatContext`.
    AVStream* videoStream = nullptr;
    AVStream* audioStream = nullptr;
};
