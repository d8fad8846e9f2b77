#include "multimedia/base/encode.h"

#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/warning.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace multimedia {

namespace {

/// A bit of the muxer's own flags, looked for in the context's: so a muxer that wants global headers does not
/// by itself get them.
constexpr int kGlobalHeaderBit = 0x40;

/// The entry of `list` that equals `wanted`, or its first one.
template<typename Format>
Format choose(const Format* list, Format end, int wanted)
{
    if (!list)
        return end;
    for (const Format* entry = list; *entry != end; ++entry) {
        if (*entry == wanted)
            return *entry;
    }
    return *list;
}

/// Some builds list an encoder whose library is a stand-in that never opens.
bool opens(const AVCodec& encoder)
{
    const CodecContextPtr trial(avcodec_alloc_context3(&encoder));
    if (!trial)
        return false;
    trial->pix_fmt = AV_PIX_FMT_YUV420P;
    trial->width = trial->height = 64;
    trial->time_base = {1, 25};
    return avcodec_open2(trial.get(), &encoder, nullptr) >= 0;
}

} // namespace

const AVCodec* Encode::findEncoder(int codec_id)
{
    if (codec_id != AV_CODEC_ID_H264)
        return avcodec_find_encoder(AVCodecID(codec_id));
    if (const AVCodec* x264 = avcodec_find_encoder_by_name("libx264"))
        return x264;
    const AVCodec* openh264 = avcodec_find_encoder_by_name("libopenh264");
    return openh264 && opens(*openh264) ? openh264 : nullptr;
}

Encode::Encode(Params params)
    : params(std::move(params))
    , input([this] { return run(); })
{
    if (!open())
        close();
}

Encode::~Encode()
{
    {
        std::lock_guard lock(input.mutex);
        if (!pending)
            return;
    }
    encode({});
    input.finish();
}

bool Encode::open()
{
    if (codec)
        return false;
    return params.is_video ? openVideo() : openAudio();
}

void Encode::close()
{
    codec.reset();
    stream = nullptr;
}

bool Encode::openVideo()
{
    constexpr auto where = "openVideo";
    const AVCodec* encoder = addStream(where);
    if (!encoder)
        return false;
    if (params.use_global_header || (params.format->flags & kGlobalHeaderBit)) {
        codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        av_opt_set(codec->priv_data, "preset", "ultrafast", 0);
    }
    Dictionary dictionary;
    if (!readOptions(where, dictionary))
        return false;
    codec->pix_fmt = choose(pixelFormats(*encoder), AV_PIX_FMT_NONE, params.pixel_format);
    codec->width = params.width;
    codec->height = params.height;
    codec->framerate = {params.frame_rate, 1};
    codec->time_base = {1, params.frame_rate};
    if (params.color_space != AVCOL_SPC_UNSPECIFIED) {
        codec->colorspace = AVColorSpace(params.color_space);
        codec->color_range = AVCOL_RANGE_MPEG;
        codec->color_primaries = AVColorPrimaries(params.color_space); // numbered alike
        codec->color_trc = AVColorTransferCharacteristic(params.color_space);
    }
    if (!openCodec(where, encoder, dictionary.address()))
        return false;
    av_dump_format(params.format, stream->index, params.format->url, 1);
    return true;
}

bool Encode::openAudio()
{
    constexpr auto where = "openAudio";
    const AVCodec* encoder = addStream(where);
    if (!encoder)
        return false;
    if (params.format->flags & kGlobalHeaderBit)
        codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    Dictionary unused; // audio options are looked at, and go no further
    if (!readOptions(where, unused))
        return false;
    codec->sample_fmt = choose(sampleFormats(*encoder), AV_SAMPLE_FMT_NONE, params.sample_format);
    codec->sample_rate = params.sample_rate;
    setChannelMask(*codec, params.channel_layout);
    codec->time_base = {1, params.sample_rate};
    return openCodec(where, encoder, nullptr);
}

const AVCodec* Encode::addStream(const char* where)
{
    const AVCodec* encoder = findEncoder(params.codec_id);
    if (!encoder) {
        warning(where, "error in find decoder");
        return nullptr;
    }
    stream = params.format ? avformat_new_stream(params.format, encoder) : nullptr;
    if (!stream) {
        warning(where, "error in open stream");
        return nullptr;
    }
    // With the encoder given, the context has that encoder's defaults.
    codec.reset(avcodec_alloc_context3(encoder));
    if (!codec) {
        warning(where, "error in alloc codec context");
        return nullptr;
    }
    stream->codecpar->codec_tag = 0;
    return encoder;
}

bool Encode::readOptions(const char* where, Dictionary& dictionary) const
{
    for (const auto& [key, value] : params.options) {
        const int code = dictionary.set(key.c_str(), value.c_str());
        if (code < 0) {
            warning(where, "error in set opetions " + key, code);
            return false;
        }
    }
    return true;
}

bool Encode::openCodec(const char* where, const AVCodec* encoder, AVDictionary** dictionary)
{
    int code = avcodec_open2(codec.get(), encoder, dictionary);
    if (code >= 0)
        code = avcodec_parameters_from_context(stream->codecpar, codec.get());
    if (code < 0)
        warning(where, "error in open encode", code);
    return code >= 0;
}

void Encode::encode(FrameHandle frame)
{
    input.push(std::move(frame));
}

bool Encode::run()
{
    if (!codec) {
        warning("run", "empty encode");
        return false;
    }
    for (const FrameHandle& frame : input.take()) {
        if (!encodeFrame(frame.get()))
            break; // the rest of the batch goes with it
    }
    return input.refilled();
}

bool Encode::encodeFrame(AVFrame* frame)
{
    if (!pending) {
        std::lock_guard lock(input.mutex);
        pending = createPacket();
    }
    if (frame) {
        frame->pts = next_pts;
        next_pts += params.is_video ? 1 : frame->nb_samples;
    }
    int code = avcodec_send_frame(codec.get(), frame);
    if (code != 0) {
        warning("run", "error in send frame", code);
        return false;
    }
    code = pending ? avcodec_receive_packet(codec.get(), pending.get()) : AVERROR(ENOMEM);
    if (code == AVERROR_EOF || code == AVERROR(EAGAIN))
        return false;
    if (code != 0) {
        warning("run", "error in receive frame", code);
        return false;
    }
    PacketHandle packet;
    {
        std::lock_guard lock(input.mutex);
        packet = std::move(pending);
    }
    if (params.is_video && packet->duration == 0)
        packet->duration = 1; // or players take the last picture to last no time, and skip it
    av_packet_rescale_ts(packet.get(), codec->time_base, stream->time_base);
    packet->stream_index = stream->index;
    params.on_packet(std::move(packet));
    return true;
}

} // namespace multimedia
