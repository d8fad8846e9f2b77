#pragma once

#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/mediahandle.h"
#include "multimedia/base/stage.h"

#include <functional>

namespace multimedia {

/// Stage: turns the packets of one stream of an input into frames.
///
/// The one stage that calls its successor with its own mutex held. Only the destructor flushes the decoder.
class Decode
{
public:
    struct Params
    {
        std::function<void(FrameHandle)> on_frame;
        AVFormatContext* format = nullptr; ///< not owned: the input whose best stream is decoded
        bool is_video = false;
    };

    explicit Decode(Params params);
    ~Decode();

    /// True at once when the decoder is open.
    bool open();
    void close();
    AVStream* getStream() const { return stream; }
    AVCodecContext* getCodec() const { return codec.get(); }
    /// A packet without data puts the decoder into draining.
    void decode(PacketHandle packet);

private:
    bool run();
    void receiveFrames();

    Params params;
    AVStream* stream = nullptr; ///< owned by the input
    CodecContextPtr codec;
    StageInput<PacketHandle> input;
};

} // namespace multimedia
