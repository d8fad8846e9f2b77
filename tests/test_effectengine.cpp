#include "multimedia/audiorecorder/effectengine.h"
#include "multimedia/audiorecorder/pitchshifter.h"
#include "multimedia/audiorecorder/tremolo.h"
#include "tests/support/incase.h"
#include "tests/support/soundcheck.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <future>

using multimedia::EffectEngine;
using soundcheck::Samples;

namespace {

constexpr int kRate = 24000;

/// Plays `input`, silence after it, and collects the left channel until `wanted` frames have come.
class Run
{
public:
    Run(const Samples& input, size_t wanted)
        : input(input)
        , wanted(wanted)
        , engine([this](void* data, unsigned bytes) { return feed(data, bytes); },
                 [this](const float* samples, unsigned frames, int channels) {
                     take(samples, frames, channels);
                 })
    {}

    Samples operator()(int channels)
    {
        if (!engine.start({kRate, channels, 16}))
            return {};
        done.get_future().wait();
        return output;
    }

    bool same_channels = true; ///< both channels were equal

private:
    int feed(void* data, unsigned bytes)
    {
        if (ended)
            return EffectEngine::NotReady;
        const size_t count = std::min<size_t>(bytes / sizeof(int16_t), input.size() - fed);
        std::memcpy(data, input.data() + fed, count * sizeof(int16_t));
        fed += count;
        return EffectEngine::Ok;
    }

    void take(const float* samples, unsigned frames, int channels)
    {
        for (size_t i = 0; i < frames && output.size() < wanted; ++i) {
            output.push_back(int16_t(samples[i * size_t(channels)] * 32768.0F));
            same_channels =
                same_channels && samples[i * size_t(channels)] == samples[i * size_t(channels) + 1];
        }
        if (output.size() == wanted && !ended.exchange(true))
            done.set_value();
    }

    const Samples input;
    const size_t wanted;
    size_t fed = 0;
    Samples output;
    std::atomic<bool> ended = false;
    std::promise<void> done;

public:
    EffectEngine engine; ///< last: its threads end before what they use
};

} // namespace

class TestEffectEngine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void stream_keepsSecondChannel_ofThree();
    void pitchShifter_movesPitch_andKeepsDuration();
    void pitchShifter_staysInRange_onFullScale();
    void tremolo_hasStatedShape();
    void source_isNotAskedAgain_whenItHasEnded();
    void engine_ends_whileSourceWaits();
    void engine_ends_whileTapWorks();
    void start_refuses_badStream();
};

void TestEffectEngine::stream_keepsSecondChannel_ofThree()
{
    Samples input;
    for (int i = 0; i < kRate; ++i)
        input.insert(input.end(), {int16_t(i), int16_t(-i), int16_t(7)});
    Run run(input, kRate);
    const Samples left = run(3);
    QVERIFY(!run.same_channels);
    for (size_t i = 0; i < left.size(); ++i)
        QCOMPARE(left[i], int16_t(i));
}

void TestEffectEngine::pitchShifter_movesPitch_andKeepsDuration()
{
    for (const auto& [pitch, voice_hz] :
         {std::pair(2.6F, 110.0), {2.6F, 220.0}, {0.5F, 110.0}, {0.5F, 220.0}}) {
        const InCase in_case(pitch, voice_hz);
        // Half a second of silence, one of voice, half of silence: the voice must be found where it was.
        Samples input(kRate / 2);
        const Samples vowel = soundcheck::vowel(kRate, voice_hz, 1);
        input.insert(input.end(), vowel.begin(), vowel.end());
        input.resize(size_t(kRate) * 2);
        Run run(input, input.size());
        run.engine.addEffect(std::make_unique<multimedia::PitchShifter>(kRate, pitch));
        const Samples output = run(1);

        const double expected = voice_hz * double(pitch);
        const double found = soundcheck::pitch(output, kRate, expected / 1.5, expected * 1.5, kRate * 3 / 4);
        QVERIFY2(std::abs(found / expected - 1) < 0.03, qPrintable(QString::number(found)));
        const auto loud = [](int16_t sample) { return std::abs(sample) > 500; };
        const auto first = std::find_if(output.begin(), output.end(), loud) - output.begin();
        const auto last = output.rend() - std::find_if(output.rbegin(), output.rend(), loud);
        QVERIFY(std::abs(first - kRate / 2) < kRate / 20);
        QVERIFY(std::abs(last - kRate * 3 / 2) < kRate / 20);
    }
}

void TestEffectEngine::pitchShifter_staysInRange_onFullScale()
{
    Samples input(kRate);
    for (size_t i = 0; i < input.size(); ++i)
        input[i] = i / 100 % 2 == 0 ? 32767 : -32768;
    Run run(input, input.size());
    run.engine.addEffect(std::make_unique<multimedia::PitchShifter>(kRate, 2.6F));
    const Samples output = run(1);
    // Without a limit the overshoot of the edges would come back with the other sign.
    QVERIFY(std::count(output.begin(), output.end(), 32767) > 100);
}

void TestEffectEngine::tremolo_hasStatedShape()
{
    const Samples input(size_t(kRate), 30000);
    Run run(input, input.size());
    run.engine.addEffect(
        std::make_unique<multimedia::Tremolo>(kRate, multimedia::Tremolo::Settings{300.0F, 20.0F, 0.68F}));
    const Samples output = run(1);
    constexpr size_t kPeriod = kRate / 300;
    for (size_t i = 0; i < output.size(); ++i)
        QVERIFY(std::abs(output[i] - output[i % kPeriod]) <= 100);
    const auto end = output.begin() + kPeriod;
    QVERIFY(*std::min_element(output.begin(), end) < 10);
    const auto top = std::max_element(output.begin(), end);
    QVERIFY(*top > 29900);
    QCOMPARE(int(top - output.begin()), int(std::lround(0.84 * kPeriod)));
}

void TestEffectEngine::source_isNotAskedAgain_whenItHasEnded()
{
    std::atomic<int> asked = 0;
    std::atomic<int> taken = 0;
    std::promise<void> ended;
    {
        EffectEngine engine(
            [&](void*, unsigned) {
                if (++asked < 3)
                    return EffectEngine::Ok;
                ended.set_value();
                return EffectEngine::NotReady;
            },
            [&](const float*, unsigned, int) { ++taken; });
        QVERIFY(engine.start({kRate, 1, 16}));
        ended.get_future().wait();
        QTRY_COMPARE(taken.load(), 2);
    }
    QCOMPARE(asked.load(), 3);
    QCOMPARE(taken.load(), 2);
}

void TestEffectEngine::engine_ends_whileSourceWaits()
{
    for (int round = 0; round < 20; ++round) {
        std::promise<void> waiting;
        std::promise<void> release;
        auto released = release.get_future();
        auto engine = std::make_unique<EffectEngine>(
            [&](void*, unsigned) {
                waiting.set_value();
                released.wait();
                return EffectEngine::NotReady;
            },
            [](const float*, unsigned, int) {});
        QVERIFY(engine->start({kRate, 1, 16}));
        waiting.get_future().wait();
        release.set_value();
        engine.reset();
    }
}

void TestEffectEngine::engine_ends_whileTapWorks()
{
    for (int round = 0; round < 20; ++round) {
        std::promise<void> working;
        std::atomic<bool> told = false;
        EffectEngine engine([](void*, unsigned) { return EffectEngine::Ok; },
                            [&](const float*, unsigned, int) {
                                if (!told.exchange(true))
                                    working.set_value();
                            });
        QVERIFY(engine.start({kRate, 2, 16}));
        working.get_future().wait();
    }
}

void TestEffectEngine::start_refuses_badStream()
{
    constexpr int kHuge = 2'000'000'000;
    for (const auto& [rate, channels, bits] : {std::tuple(0, 1, 16),
                                               {kHuge, 1, 16},
                                               {kRate, 0, 16},
                                               {kRate, kHuge, 16},
                                               {kRate, 1, 8},
                                               {kRate, 1, 32}}) {
        EffectEngine engine([](void*, unsigned) { return EffectEngine::Ok; },
                            [](const float*, unsigned, int) {});
        QVERIFY2(!engine.start({rate, channels, bits}),
                 qPrintable(QString("%1 Hz, %2 channels, %3 bits").arg(rate).arg(channels).arg(bits)));
    }
}

QTEST_GUILESS_MAIN(TestEffectEngine)
#include "test_effectengine.moc"
