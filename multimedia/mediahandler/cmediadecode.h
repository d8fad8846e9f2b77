#pragma once

#include "multimedia/base/mediasource.h"
#include "multimedia/mediahandler/cmediaresample.h"

#include <QtCore/QByteArray>
#include <QtCore/QVariantMap>

#include <atomic>

/// Decodes the best audio stream of a local file into one block of 16-bit mono samples.
///
/// Every file is taken for mono: of several planes the first is kept, of interleaved channels the first
/// values of each frame, one per sample time, and the rate stays that of the file. What the decoder holds
/// back at the end of the file is not asked for.
///
/// Synchronous, one thread at a time, `cancelDecode` excepted. Codes are FFmpeg's; failures are logged.
class CMediaDecode
{
public:
    /// Opens the file and its decoder: 0 or a negative code.
    int openInputFile(const QString& path);
    /// The samples in host byte order; empty when the file cannot be opened, holds a frame that cannot be
    /// decoded, was cancelled, or would give more than 1 GiB.
    QByteArray decodeAudio(const QString& path);
    /// Describes the samples: "channels" 1, "sampleRate" in Hz, "sampleFormat" "PCMFormatInt16" and
    /// "interleaved" false. Empty before the first decoded frame.
    QVariantMap audioInfo() const { return info; }
    /// Makes the decoding end soon, now and for good, with an empty result. Any thread.
    void cancelDecode() { cancelled = true; }

private:
    void decodePackets();
    bool decodePacket(const AVPacket* packet);
    bool appendFrame(const AVFrame* frame);
    bool prepareFor(const AVFrame* frame);

    multimedia::MediaSource source;
    QByteArray pcm;
    std::atomic<bool> cancelled = false;
    QVariantMap info;

    // Of the decoding under way.
    CMediaResample resample;
    multimedia::FrameHandle frame;
    AVSampleFormat frame_format = AV_SAMPLE_FMT_NONE; ///< of the first frame
    QByteArray block; ///< samples of one frame, as large as the largest so far
};
