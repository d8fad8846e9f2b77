#pragma once

#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/mediahandle.h"
#include "multimedia/base/stage.h"

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

namespace multimedia {

/// Stage: adds one stream to an output context, encodes the frames that arrive and numbers them.
///
/// Timestamps are counted here alone: a video frame is one tick of 1/`frame_rate` long, an audio frame as
/// many ticks of 1/`sample_rate` as it has samples, whatever the capture's clock said. Packets leave in the
/// time base of their stream.
///
/// One packet is taken out per frame sent in. While the encoder fills its delay it gives none, and the frames
/// that waited in the same batch behind such a frame are discarded; the destructor flushes one packet.
class Encode
{
public:
    struct Params
    {
        std::function<void(PacketHandle)> on_packet;
        AVFormatContext* format = nullptr; ///< not owned: the output that gets the new stream
        bool is_video = false;
        int codec_id = 0; ///< an `AVCodecID`
        /// Options of the encoder, video only.
        std::unordered_map<std::string, std::string> options;
        bool use_global_header = false; ///< video only: global headers and the fastest preset
        int pixel_format = -1; ///< wanted `AVPixelFormat`, video only; the encoder's first where it lacks it
        int frame_rate = 0;    ///< frames per second, video only
        int width = -1;        ///< pixels, video only
        int height = -1;       ///< pixels, video only
        int sample_format =
            -1; ///< wanted `AVSampleFormat`, audio only; the encoder's first where it lacks it
        uint64_t channel_layout = 0; ///< mask of `AV_CH_*` bits, audio only
        int sample_rate = 0;         ///< Hz, audio only
        /// What the pictures are said to be in, an `AVColorSpace`, with primaries, transfer and limited range
        /// to match; video only. Nothing is said by default.
        int color_space = AVCOL_SPC_UNSPECIFIED;
    };

    /// The encoder that a stream of this codec gets: of H.264 libx264, else openh264 if it works here; of
    /// others FFmpeg's first. Null without one. An encoder in hardware is no H.264 encoder here: it may be
    /// listed and not be there.
    static const AVCodec* findEncoder(int codec_id);

    explicit Encode(Params params);
    ~Encode();

    /// False when the encoder is open already.
    bool open();
    void close();
    AVStream* getStream() const { return stream; }
    AVCodecContext* getCodec() const { return codec.get(); }
    /// A null frame puts the encoder into draining.
    void encode(FrameHandle frame);

private:
    bool openVideo();
    bool openAudio();
    const AVCodec* addStream(const char* where);
    bool readOptions(const char* where, Dictionary& dictionary) const;
    bool openCodec(const char* where, const AVCodec* encoder, AVDictionary** dictionary);
    bool run();
    bool encodeFrame(AVFrame* frame);

    Params params;
    AVStream* stream = nullptr; ///< owned by the output
    CodecContextPtr codec;
    PacketHandle
        pending; ///< filled by the next packet; made in the first pass. Guarded by the mutex of `input`
    int64_t next_pts = 0; ///< in the encoder's time base; passes only
    StageInput<FrameHandle> input;
};

} // namespace multimedia
