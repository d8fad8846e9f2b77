#pragma once

#include "multimedia/audioplayer/audioplayer.h"
#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/mediahandle.h"

#include <QtCore/QByteArray>

/// @file
/// What the sources of `AudioPlayer` share.

struct AudioPlayer::Media
{
    AVStream* stream() const { return format->streams[stream_index]; }

    multimedia::InputPtr format;
    int stream_index = 0; ///< the audio stream
    multimedia::CodecContextPtr codec;
    multimedia::FilterGraphPtr filter_graph;
    AVFilterContext* buffer_source = nullptr; ///< of `filter_graph`
    AVFilterContext* buffer_sink = nullptr;   ///< of `filter_graph`
    multimedia::FrameHandle frame;
    multimedia::PacketHandle packet;
};

/// While true, every read of the player's source aborts. Set by whoever wants the player's thread free;
/// cleared by the next `play`.
extern std::atomic<bool> g_needToInterruptOpen;
/// Whether that happened since the last `play`.
extern std::atomic<bool> g_interruptOpened;
/// When the present read began, ms since the epoch; 0 when no read has a time limit running.
extern std::atomic<qint64> g_startTime;

/// FFmpeg's hook of the player's reads: whether to abort. A read may take 20 s.
int interrupt_callback(void* unused);

/// Opens a file, or a URL that starts with "http", and finds its audio stream. The reason of a failure is
/// logged.
///
/// @param out  may hold the input even on failure
bool initFormat(multimedia::InputPtr& out, int& streamIndex, const QByteArray& path,
                AVIOInterruptCB interrupt);

/// Milliseconds, truncated; what a damaged file claims is kept within the integers.
qint64 toMs(AVRational time_base, int64_t time);
