#pragma once

#include "multimedia/base/ffmpegptr.h"

#include <cstdint>
#include <string>

/// @file
/// The one place that opens media received from others.

namespace multimedia {

enum class InputOrigin {
    LocalFile, ///< a regular file, read by the `file` protocol
    Http,      ///< an http(s) URL
};

struct InputOptions
{
    InputOrigin origin = InputOrigin::LocalFile;
    AVIOInterruptCB interrupt = {nullptr,
                                 nullptr}; ///< polled by blocking reads, for as long as the input lives
    int64_t timeout_us = 0;                ///< of one network operation; 0 for none
};

/// Opens `path` for demuxing. Streams are not looked at yet (`avformat_find_stream_info`).
///
/// An input opens itself and nothing else: a playlist, a script or an image pattern that names other files,
/// devices or addresses fails, whatever the extension says. A local path is taken by the letter, so that
/// "concat:a|b" or "http://host/x" is only an odd file name; folders, pipes and devices are refused before
/// they can block. A text is no media. Probing and the number of streams are bounded.
///
/// @param path   UTF-8
/// @param input  the result; null on failure
/// @return 0, or FFmpeg's negative code. Nothing is logged but what the input tried to reach.
///
/// Any thread; blocks for as long as the source does.
int openInput(InputPtr& input, const std::string& path, const InputOptions& options = {});

/// Opens the decoder of a stream; null on failure. Pictures of more than 100 million pixels, which a few
/// bytes can ask for, are refused.
CodecContextPtr openDecoder(const AVStream& stream);

} // namespace multimedia
