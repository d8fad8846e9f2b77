#include "multimedia/screenrecord/soundpace.h"

#include "multimedia/base/executor.h"
#include "multimedia/base/ffmpegversion.h"

extern "C" {
#include <libavutil/samplefmt.h>
}

#include <algorithm>
#include <cmath>
#include <utility>

namespace multimedia {

namespace {

using namespace std::chrono_literals;

/// Longer than a busy machine is late as a rule.
constexpr auto kHold = 400ms;
/// What is kept of the sound before the start.
constexpr auto kKeep = 2s;
/// Nothing has come for so long: silence takes its place, up to `kHold` ago.
constexpr auto kAbsent = 1500ms;
/// How long the end waits for what was captured before it.
constexpr auto kEndPatience = 300ms;
/// What is further off than this was lost, or came after silence had stood in for it.
constexpr double kJump_s = 0.030;
/// A clock that runs fast or slow is corrected from here on, a sample a frame: more than a server that hands
/// out blocks of 20 ms is early or late by.
constexpr double kSlack_s = 0.018;
/// More than the stages behind hold back: a frame and the filter of the resampler, two frames of the encoder.
constexpr int kFlushSamples = 4096;
constexpr int kSilenceSamples = 4096;

double seconds(SoundPace::Time::duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

} // namespace

SoundPace::SoundPace(Params given)
    : params(std::move(given))
    , format(params.format)
{}

void SoundPace::start(Time at)
{
    std::lock_guard lock(mutex);
    if (!zero)
        zero = at;
}

void SoundPace::take(FrameHandle sound, Time arrived)
{
    std::lock_guard lock(mutex);
    if (finished || !sound || sound->nb_samples <= 0)
        return;
    if (taken == 0)
        format = {sound->format, sound->sample_rate, channelMask(*sound)};
    const int64_t begin = taken;
    taken += sound->nb_samples;
    const double offset_s = seconds(arrived.time_since_epoch()) - double(taken) / format.sample_rate;
    last_arrival = arrived;
    held.push_back({std::move(sound), begin, arrived, offset_s});
    changed.notify_all();
    if (zero)
        placeReady(arrived);
    else
        while (held.front().arrived + kKeep < arrived)
            held.pop_front();
}

void SoundPace::advance(Time now)
{
    std::lock_guard lock(mutex);
    if (finished || !zero)
        return;
    placeReady(now);
    if (held.empty() && now - std::max(*zero, last_arrival.value_or(*zero)) > kAbsent)
        silence(sampleAt(sinceZero(now - kHold)) - passed);
}

void SoundPace::finish(Time end)
{
    const Time deadline = std::chrono::steady_clock::now() + kEndPatience;
    std::unique_lock lock(mutex);
    if (finished)
        return;
    if (zero && last_arrival) {
        BlockingSection blocking;
        changed.wait_until(lock, deadline, [this, end] { return hasAllUpTo(end); });
    }
    finished = true;
    if (!zero)
        return;
    placeReady(Time::max());
    silence(sampleAt(sinceZero(end)) - passed);
    silence(kFlushSamples);
}

bool SoundPace::hasAllUpTo(Time end) const
{
    return !held.empty() &&
           seconds(end.time_since_epoch()) <= leastOffset() + double(taken) / format.sample_rate;
}

void SoundPace::placeReady(Time now)
{
    while (!held.empty() && (now == Time::max() || held.front().arrived + kHold <= now)) {
        place(held.front(), leastOffset());
        held.pop_front();
    }
}

/// The least among those that came within `kHold` of the first.
double SoundPace::leastOffset() const
{
    double least = held.front().offset_s;
    for (const Piece& piece : held) {
        if (piece.arrived > held.front().arrived + kHold)
            break;
        least = std::min(least, piece.offset_s);
    }
    return least;
}

void SoundPace::place(Piece& piece, double offset_s)
{
    AVFrame& sound = *piece.sound;
    const double captured_s = double(piece.begin) / format.sample_rate + offset_s;
    const int64_t position = sampleAt(captured_s - seconds(zero->time_since_epoch()));
    const int64_t late = position - passed;
    const double late_s = double(late) / format.sample_rate;
    int skip = 0;
    if (passed == 0 || std::abs(late_s) > kJump_s) {
        silence(late);
        skip = int(std::clamp<int64_t>(-late, 0, sound.nb_samples));
    } else if (late_s > kSlack_s) {
        passOn(sound, 0, 1);
    } else if (late_s < -kSlack_s) {
        skip = 1;
    }
    passOn(sound, skip, sound.nb_samples - skip);
}

void SoundPace::passOn(AVFrame& sound, int skip, int count)
{
    FrameHandle frame = count > 0 ? makeFrame(count) : FrameHandle();
    if (!frame)
        return;
    av_samples_copy(frame->data, sound.data, 0, skip, count, channelCount(sound),
                    AVSampleFormat(sound.format));
    passed += count;
    params.on_frame(std::move(frame));
}

void SoundPace::silence(int64_t samples)
{
    while (samples > 0) {
        const int count = int(std::min<int64_t>(samples, kSilenceSamples));
        FrameHandle frame = makeFrame(count);
        if (!frame)
            return;
        av_samples_set_silence(frame->data, 0, count, channelCount(*frame), AVSampleFormat(frame->format));
        passed += count;
        samples -= count;
        params.on_frame(std::move(frame));
    }
}

FrameHandle SoundPace::makeFrame(int samples) const
{
    FrameHandle frame = createFrame();
    if (!frame)
        return {};
    frame->format = format.sample_format;
    frame->sample_rate = format.sample_rate;
    setChannelMask(*frame, format.channel_layout);
    frame->nb_samples = samples;
    if (av_frame_get_buffer(frame.get(), 0) < 0)
        return {};
    return frame;
}

int64_t SoundPace::sampleAt(double at_s) const
{
    return std::llround(at_s * format.sample_rate);
}

double SoundPace::sinceZero(Time time) const
{
    return seconds(time - *zero);
}

} // namespace multimedia
