#pragma once

#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/mediahandle.h"

class CMediaOutput;

/// An audio encoder that hands its packets to a plain function.
///
/// Results are 0 or FFmpeg's negative codes; failures are logged. One thread at a time.
class CMediaEncode
{
public:
    using Callback = void (*)(AVPacket* packet, CMediaOutput* output);

    CMediaEncode() = default;
    ~CMediaEncode() = default;
    CMediaEncode(const CMediaEncode&) = delete;
    CMediaEncode& operator=(const CMediaEncode&) = delete;

    /// Chooses the encoder. An encoder that is in use is flushed and freed first.
    int setEncodeId(AVCodecID id);
    /// Opens the encoder.
    /// @param bitRate        bit/s
    /// @param channels       must agree with `channelLayout`
    /// @param channelLayout  mask of `AV_CH_*` bits
    /// @param frameSize      gets the samples per channel that each frame must hold, on success only
    int setEncodeAudioParam(long long bitRate, int sampleRate, int channels, unsigned long long channelLayout,
                            AVSampleFormat format, int& frameSize);
    /// `callback` gets every packet, still owned by the encoder, together with `output`.
    void setEncodeCallback(Callback callback, CMediaOutput* output);
    /// Null before `setEncodeId` and after `close`.
    AVCodecContext* getEncodeContex() const { return context.get(); }

    /// Encodes one frame, or flushes with a null one. The good result is `AVERROR(EAGAIN)`, the encoder's
    /// wish for another frame, or `AVERROR_EOF` after a flush.
    int encode(const AVFrame* frame);
    /// Flushes and frees the encoder.
    void close();

private:
    multimedia::CodecContextPtr context;
    const AVCodec* codec = nullptr;
    multimedia::PacketHandle packet;
    Callback callback = nullptr;
    CMediaOutput* output = nullptr;
};
