#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
}

#include "multimedia/base/ffmpegptr.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

/// @file
/// The calls that differ between FFmpeg generations, each once, under a name that says what it does.
///
/// Built and tested against FFmpeg 5.1 and 7.1; each call has its newer form first. The version that brought
/// a form stands beside it, as the change log of FFmpeg's interfaces has it: 6.0 and 6.1 lie between and were
/// not tried. Channel layouts are masks of `AV_CH_*` bits at our own interfaces and `AVChannelLayout` only in
/// here.

namespace multimedia {

/// Formats and codecs need no registration any more; devices do.
inline void registerFFmpeg()
{
    avdevice_register_all();
}

/// Whether the decoder can begin at this picture.
inline bool isKeyFrame(const AVFrame& frame)
{
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(58, 7, 100) // 6.1
    return (frame.flags & AV_FRAME_FLAG_KEY) != 0;
#else
    return frame.key_frame == 1;
#endif
}

/// How long a decoded frame is shown, in the time base of its stream; 0 when not known.
inline int64_t frameDuration(const AVFrame& frame)
{
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100) // 6.0
    return frame.duration;
#else
    return frame.pkt_duration;
#endif
}

/// What the encoder takes, ended by `AV_PIX_FMT_NONE`; null when it does not say.
inline const AVPixelFormat* pixelFormats(const AVCodec& encoder)
{
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100) // 7.1
    const void* formats = nullptr;
    avcodec_get_supported_config(nullptr, &encoder, AV_CODEC_CONFIG_PIX_FORMAT, 0, &formats, nullptr);
    return static_cast<const AVPixelFormat*>(formats);
#else
    return encoder.pix_fmts;
#endif
}

/// What the encoder takes, ended by `AV_SAMPLE_FMT_NONE`; null when it does not say.
inline const AVSampleFormat* sampleFormats(const AVCodec& encoder)
{
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100) // 7.1
    const void* formats = nullptr;
    avcodec_get_supported_config(nullptr, &encoder, AV_CODEC_CONFIG_SAMPLE_FORMAT, 0, &formats, nullptr);
    return static_cast<const AVSampleFormat*>(formats);
#else
    return encoder.sample_fmts;
#endif
}

/// What stands beside the packets of a stream, such as its display matrix. 6.1 moved it from the stream into
/// the codec's parameters.
#if LIBAVFORMAT_VERSION_INT >= AV_VERSION_INT(60, 15, 100) // 6.1
inline const AVPacketSideData* sideData(const AVStream& stream, AVPacketSideDataType type)
{
    const AVCodecParameters& parameters = *stream.codecpar;
    return av_packet_side_data_get(parameters.coded_side_data, parameters.nb_coded_side_data, type);
}

/// `size` bytes that the stream owns, in place of what it had of this type; null when there is no memory.
inline uint8_t* newSideData(AVStream& stream, AVPacketSideDataType type, size_t size)
{
    AVCodecParameters& parameters = *stream.codecpar;
    const AVPacketSideData* entry =
        av_packet_side_data_new(&parameters.coded_side_data, &parameters.nb_coded_side_data, type, size, 0);
    return entry ? entry->data : nullptr;
}
#else
inline const AVPacketSideData* sideData(const AVStream& stream, AVPacketSideDataType type)
{
    for (int i = 0; i < stream.nb_side_data; ++i) {
        if (stream.side_data[i].type == type)
            return &stream.side_data[i];
    }
    return nullptr;
}

inline uint8_t* newSideData(AVStream& stream, AVPacketSideDataType type, size_t size)
{
    return av_stream_new_side_data(&stream, type, size);
}
#endif

/// `avcodec_parameters_copy` with all that stands beside the packets. Negative on failure.
inline int copyParameters(AVStream& to, const AVStream& from)
{
    const int code = avcodec_parameters_copy(to.codecpar, from.codecpar);
#if LIBAVFORMAT_VERSION_INT < AV_VERSION_INT(60, 15, 100) // 6.1
    for (int i = 0; code >= 0 && i < from.nb_side_data; ++i) {
        const AVPacketSideData& entry = from.side_data[i];
        uint8_t* data = newSideData(to, entry.type, entry.size);
        if (!data)
            return AVERROR(ENOMEM);
        std::memcpy(data, entry.data, entry.size);
    }
#endif
    return code;
}

inline int channelCount(uint64_t mask)
{
    return av_popcount64(mask);
}

/// The layout that FFmpeg takes for so many channels; 0 when it has none.
inline uint64_t defaultChannelMask(int channels)
{
    AVChannelLayout layout = {};
    av_channel_layout_default(&layout, channels);
    return layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
}

/// Mask of a layout. A layout that only counts its channels gets the default mask for that count.
inline uint64_t channelMask(const AVChannelLayout& layout)
{
    return layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : defaultChannelMask(layout.nb_channels);
}

/// `object` is a frame, a codec context or codec parameters.
template<typename Object>
uint64_t channelMask(const Object& object)
{
    return channelMask(object.ch_layout);
}

template<typename Object>
int channelCount(const Object& object)
{
    return object.ch_layout.nb_channels;
}

template<typename Object>
void setChannelMask(Object& object, uint64_t mask)
{
    av_channel_layout_uninit(&object.ch_layout);
    av_channel_layout_from_mask(&object.ch_layout, mask);
}

/// One side of a resampler.
struct AudioLayout
{
    uint64_t channel_mask = 0;
    AVSampleFormat sample_format = AV_SAMPLE_FMT_NONE;
    int sample_rate = 0;
};

/// A resampler with its options set and not yet initialised (`swr_init`); null on failure.
inline SwrContextPtr makeResampler(const AudioLayout& out, const AudioLayout& in)
{
    AVChannelLayout out_layout = {};
    AVChannelLayout in_layout = {};
    av_channel_layout_from_mask(&out_layout, out.channel_mask);
    av_channel_layout_from_mask(&in_layout, in.channel_mask);
    SwrContext* context = nullptr;
    swr_alloc_set_opts2(&context, &out_layout, out.sample_format, out.sample_rate, &in_layout,
                        in.sample_format, in.sample_rate, 0, nullptr);
    return SwrContextPtr(context);
}

} // namespace multimedia
