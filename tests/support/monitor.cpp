#include "tests/support/monitor.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <cstdlib>

namespace {
/// Above the rig's silence, which is digital, and below a tenth of FFmpeg's sine.
constexpr int kAudible = 300;
constexpr double kShortestGapS = 0.005;
/// The null sink and its monitor hold so much back.
constexpr size_t kLatencySamples = Monitor::kRateHz / 4;

bool audible(int16_t value)
{
    return std::abs(value) > kAudible;
}
} // namespace

Monitor::Monitor(const QString& sink)
{
    // Without the property PipeWire takes who listens to a default sink along to the next default one.
    recorder.start(QStringLiteral("parec"),
                   {"-d", sink + ".monitor", "--format=s16le", "--rate=44100", "--channels=1",
                    "--latency-msec=20", "--raw", "--property=node.dont-reconnect=true"});
    QTRY_VERIFY2((take(), !samples.empty()), "nothing comes from the monitor");
}

Monitor::~Monitor()
{
    recorder.kill();
    recorder.waitForFinished();
}

void Monitor::take()
{
    const QByteArray bytes = recorder.readAllStandardOutput();
    const auto* values = reinterpret_cast<const int16_t*>(bytes.constData());
    samples.insert(samples.end(), values, values + bytes.size() / 2);
}

Monitor::Sound Monitor::stop()
{
    take();
    const size_t wanted = samples.size() + kLatencySamples;
    [&] { QTRY_VERIFY2((take(), samples.size() >= wanted), "the monitor has stopped"); }();

    const auto first = std::find_if(samples.cbegin(), samples.cend(), audible);
    const auto last = std::find_if(samples.crbegin(), samples.crend(), audible).base();
    Sound sound;
    if (first == samples.cend())
        return sound;
    sound.duration_s = static_cast<double>(last - first) / kRateHz;
    int crossings = 0;
    double silence_s = 0;
    auto heard = first;
    for (auto sample = first + 1; sample < last; ++sample) {
        crossings += sample[-1] < 0 && *sample >= 0 ? 1 : 0;
        if (!audible(*sample))
            continue;
        const double gap_s = static_cast<double>(sample - heard) / kRateHz;
        sound.longest_gap_s = std::max(sound.longest_gap_s, gap_s);
        silence_s += gap_s > kShortestGapS ? gap_s : 0;
        heard = sample;
    }
    sound.frequency_hz = crossings / (sound.duration_s - silence_s);
    return sound;
}
