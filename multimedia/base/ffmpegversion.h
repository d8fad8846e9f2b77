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

#include <cstdint>

/// @file
/// The calls that differ between FFmpeg generations, each once, under a name that says what it does.
///
/// Built and tested against FFmpeg 5.1. Channel layouts are masks of `AV_CH_*` bits at our own interfaces and
/// `AVChannelLayout` only in here.

namespace multimedia {

/// Formats and codecs need no registration any more; devices do.
inline void registerFFmpeg()
{
    avdevice_register_all();
}

/// Time base of the codec that the demuxer probed the stream with.
inline AVRational codecTimeBase(const AVStream* stream)
{
    return av_stream_get_codec_timebase(stream);
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
