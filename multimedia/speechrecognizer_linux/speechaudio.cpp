#include "multimedia/speechrecognizer_linux/speechaudio.h"

#include <algorithm>
#include <cmath>

namespace speechRecognize {

namespace {

using multimedia::AudioLayout;

constexpr AudioLayout kSpeechLayout = {AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_S16, kSpeechRate};
// Beyond these the resampler's filters, or a second of its output, get out of hand.
constexpr int kLowestRate = multimedia::MediaSource::kLowestRate;
constexpr int kHighestRate = multimedia::MediaSource::kHighestRate;

bool operator==(const AudioLayout& a, const AudioLayout& b)
{
    return a.channel_mask == b.channel_mask && a.sample_format == b.sample_format &&
           a.sample_rate == b.sample_rate;
}

AVSampleFormat sampleFormat(PcmAudio::Format format)
{
    switch (format) {
    case PcmAudio::Format::Float32:
        return AV_SAMPLE_FMT_FLT;
    case PcmAudio::Format::Float64:
        return AV_SAMPLE_FMT_DBL;
    case PcmAudio::Format::Int16:
        return AV_SAMPLE_FMT_S16;
    case PcmAudio::Format::Int32:
        return AV_SAMPLE_FMT_S32;
    }
    return AV_SAMPLE_FMT_NONE;
}

int isCancelled(void* cancelled)
{
    return *static_cast<const std::atomic<bool>*>(cancelled) ? 1 : 0;
}

} // namespace

int SpeechAudio::open(const AudioLayout& layout)
{
    if (layout.sample_rate < kLowestRate || layout.sample_rate > kHighestRate || layout.channel_mask == 0)
        return AVERROR_PATCHWELCOME;
    resampler = multimedia::makeResampler(kSpeechLayout, layout);
    if (!resampler)
        return AVERROR(ENOMEM);
    source = layout;
    return swr_init(resampler.get());
}

int SpeechAudio::convert(const AudioLayout& layout, const std::uint8_t* const* in, int count,
                         SpeechSamples& samples)
{
    samples.clear();
    if (!(layout == source)) {
        const int code = open(layout);
        if (code < 0)
            return code;
    }
    const int room = swr_get_out_samples(resampler.get(), count);
    if (room < 0)
        return room;
    samples.resize(std::size_t(room));
    auto* out = reinterpret_cast<std::uint8_t*>(samples.data());
    const int made = swr_convert(resampler.get(), &out, room, const_cast<const std::uint8_t**>(in), count);
    samples.resize(std::size_t(std::max(made, 0)));
    return std::min(made, 0);
}

int SpeechAudio::flush(SpeechSamples& samples)
{
    samples.clear();
    return resampler ? convert(source, nullptr, 0, samples) : 0;
}

int FileAudio::open(const std::string& path)
{
    multimedia::SourceOptions options;
    options.cancelled = {isCancelled, const_cast<std::atomic<bool>*>(&cancelled)};
    int code = source.open(path, options);
    if (code >= 0)
        code = source.findStreams();
    if (code >= 0)
        code = source.select(AVMEDIA_TYPE_AUDIO);
    if (code < 0)
        return code;
    source.limitTime({});
    const AVFormatContext& input = *source.format();
    for (unsigned i = 0; i < input.nb_streams; ++i)
        input.streams[i]->discard = int(i) == source.streamIndex() ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    frame = multimedia::createFrame();
    return frame ? source.openDecoder() : AVERROR(ENOMEM);
}

int FileAudio::read(SpeechSamples& samples)
{
    samples.clear();
    do {
        const int code = source.decode(*frame);
        if (code == AVERROR_EOF)
            return flush(samples);
        if (code < 0)
            return code;
        const AudioLayout layout = {multimedia::channelMask(*frame), AVSampleFormat(frame->format),
                                    frame->sample_rate};
        const int converted = convert(layout, frame->extended_data, frame->nb_samples, samples);
        av_frame_unref(frame.get());
        if (converted < 0)
            return converted;
    } while (samples.empty());
    return 0;
}

int BufferAudio::read(SpeechSamples& samples)
{
    samples.clear();
    const double rate = std::round(audio.sample_rate);
    const int channels = audio.interleaved ? audio.channels : 1;
    if (audio.channels <= 0 || !(rate >= kLowestRate && rate <= kHighestRate))
        return AVERROR(EINVAL);
    const AudioLayout layout = {multimedia::defaultChannelMask(channels), sampleFormat(audio.format),
                                int(rate)};
    const std::size_t frame_bytes =
        std::size_t(channels) * std::size_t(av_get_bytes_per_sample(layout.sample_format));
    const std::size_t count = std::min((audio.size - position) / frame_bytes, std::size_t(rate));
    if (count == 0)
        return flush(samples);
    const std::uint8_t* in = audio.data + position;
    position += count * frame_bytes;
    return convert(layout, &in, int(count), samples);
}

} // namespace speechRecognize
