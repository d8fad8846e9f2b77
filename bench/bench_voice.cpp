#include "multimedia/audiorecorder/calculatepcmpffft.h"
#include "multimedia/audiorecorder/effectengine.h"
#include "multimedia/audiorecorder/pitchshifter.h"
#include "multimedia/audiorecorder/tremolo.h"
#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/mediahandle.h"
#include "multimedia/mediahandler/cmediaencode.h"

#include <benchmark/benchmark.h>

#include <QtCore/QByteArray>

#include <atomic>
#include <cmath>
#include <cstring>
#include <future>
#include <memory>
#include <vector>

#include <sonic.h>
#ifdef BENCH_RUBBERBAND
#    include <rubberband/RubberBandStretcher.h>
#endif

// What a voice recording costs: the spectrum, the voice changers and speeds, the encoder. Benchmarks that
// name a second of sound report `cpu_per_second`, the share of one core that recording takes in real time.

namespace {

constexpr int kRate = 24000;

/// Harmonics of 120 Hz whose loudness rises and falls four times a second.
const std::vector<int16_t>& voice()
{
    static const std::vector<int16_t> samples = [] {
        std::vector<int16_t> made(size_t(kRate) * 10);
        for (size_t i = 0; i < made.size(); ++i) {
            const double seconds = double(i) / kRate;
            double value = 0;
            for (int harmonic = 1; harmonic <= 30; ++harmonic)
                value += std::sin(2 * M_PI * 120 * harmonic * seconds) / harmonic;
            made[i] = int16_t(6000 * value * (0.6 + 0.4 * std::sin(2 * M_PI * 4 * seconds)));
        }
        return made;
    }();
    return samples;
}

void setSecondsPerIteration(benchmark::State& state, double seconds)
{
    state.counters["cpu_per_second"] = benchmark::Counter(
        seconds * double(state.iterations()), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void fftAlone(benchmark::State& state)
{
    FFTRealWrapper fft;
    const std::vector<float> in(voice().begin(), voice().begin() + FFTRealWrapper::kPoints);
    std::vector<float> out(FFTRealWrapper::kPoints);
    for ([[maybe_unused]] auto _ : state) {
        fft.calculateFFT(out.data(), in.data());
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(fftAlone)->Unit(benchmark::kMicrosecond);

void spectrum(benchmark::State& state)
{
    Calculatepcmpffft calculator;
    calculator.init();
    const QByteArray block(reinterpret_cast<const char*>(voice().data()), Calculatepcmpffft::kBlockBytes);
    for ([[maybe_unused]] auto _ : state)
        calculator.calculateSpectrum(block, int(state.range(0)));
}
BENCHMARK(spectrum)->Arg(58)->Arg(1200)->Unit(benchmark::kMicrosecond);

/// Ten seconds through the engine, as fast as it goes; counted is the time of all its threads.
void engine(benchmark::State& state, const std::function<std::unique_ptr<multimedia::Effect>()>& makeEffect)
{
    for ([[maybe_unused]] auto _ : state) {
        size_t fed = 0;
        std::atomic<size_t> taken = 0;
        std::promise<void> done;
        multimedia::EffectEngine engine(
            [&](void* data, unsigned bytes) {
                if (taken >= voice().size())
                    return multimedia::EffectEngine::NotReady;
                const size_t count = std::min<size_t>(bytes / 2, voice().size() - fed);
                std::memcpy(data, voice().data() + fed, count * 2);
                fed += count;
                return multimedia::EffectEngine::Ok;
            },
            [&](const float*, unsigned frames, int) {
                const size_t before = taken.fetch_add(frames);
                if (before < voice().size() && before + frames >= voice().size())
                    done.set_value();
            });
        if (auto effect = makeEffect())
            engine.addEffect(std::move(effect));
        engine.start({kRate, 1, 16});
        done.get_future().wait();
    }
    setSecondsPerIteration(state, double(voice().size()) / kRate);
}
BENCHMARK_CAPTURE(engine, type_1_high, [] { return std::make_unique<multimedia::PitchShifter>(kRate, 2.6F); })
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();
BENCHMARK_CAPTURE(engine, type_2_low, [] { return std::make_unique<multimedia::PitchShifter>(kRate, 0.5F); })
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();
BENCHMARK_CAPTURE(engine, type_3_tremolo,
                  [] {
                      return std::make_unique<multimedia::Tremolo>(
                          kRate, multimedia::Tremolo::Settings{300.0F, 20.0F, 0.68F});
                  })
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();
BENCHMARK_CAPTURE(engine, type_4_unchanged, [] { return std::unique_ptr<multimedia::Effect>(); })
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

/// The speeds of types 5 and 8, in tenths.
void speed(benchmark::State& state)
{
    constexpr int kBlock = 2048;
    std::vector<int16_t> block(kBlock);
    for ([[maybe_unused]] auto _ : state) {
        const std::unique_ptr<sonicStreamStruct, decltype(&sonicDestroyStream)> sonic(
            sonicCreateStream(kRate, 1), sonicDestroyStream);
        sonicSetSpeed(sonic.get(), float(state.range(0)) / 10);
        sonicSetQuality(sonic.get(), 1);
        for (size_t i = 0; i + kBlock <= voice().size(); i += kBlock) {
            std::memcpy(block.data(), voice().data() + i, kBlock * 2);
            sonicWriteShortToStream(sonic.get(), block.data(), kBlock);
            while (sonicReadShortFromStream(sonic.get(), block.data(), kBlock) > 0)
                benchmark::DoNotOptimize(block.data());
        }
    }
    setSecondsPerIteration(state, double(voice().size()) / kRate);
}
BENCHMARK(speed)->Arg(5)->Arg(20)->Unit(benchmark::kMillisecond);

/// AAC as a recording has it, all types alike.
void encoder(benchmark::State& state)
{
    for ([[maybe_unused]] auto _ : state) {
        CMediaEncode encode;
        int frame_samples = 0;
        encode.setEncodeId(AV_CODEC_ID_AAC);
        encode.setEncodeAudioParam(384000, kRate, 1, AV_CH_LAYOUT_MONO, AV_SAMPLE_FMT_FLTP, frame_samples);
        const multimedia::FrameHandle frame = multimedia::createFrame();
        frame->nb_samples = frame_samples;
        frame->format = AV_SAMPLE_FMT_FLTP;
        multimedia::setChannelMask(*frame, AV_CH_LAYOUT_MONO);
        av_frame_get_buffer(frame.get(), 0);
        for (int i = 0; i + frame_samples <= int(voice().size()); i += frame_samples) {
            av_frame_make_writable(frame.get());
            auto* data = reinterpret_cast<float*>(frame->data[0]);
            for (int k = 0; k < frame_samples; ++k)
                data[k] = float(voice()[size_t(i) + size_t(k)]) / 32768.0F;
            frame->pts = i;
            encode.encode(frame.get());
        }
        encode.close();
    }
    setSecondsPerIteration(state, double(voice().size()) / kRate);
}
BENCHMARK(encoder)->Unit(benchmark::kMillisecond);

// The two packaged pitch shifters on the same blocks of 20 ms, pitch in tenths.

template<typename Process>
void shiftVoice(Process process)
{
    constexpr size_t kBlock = kRate / 50;
    std::vector<float> block;
    for (size_t i = 0; i + kBlock <= voice().size(); i += kBlock) {
        block.clear();
        for (size_t k = 0; k < kBlock; ++k)
            block.insert(block.end(), 2, float(voice()[i + k]) / 32768.0F);
        process(block);
        benchmark::DoNotOptimize(block.data());
    }
}

void pitchBySoundTouch(benchmark::State& state)
{
    for ([[maybe_unused]] auto _ : state) {
        multimedia::PitchShifter shifter(kRate, float(state.range(0)) / 10);
        shiftVoice([&](std::vector<float>& block) { shifter.process(block); });
    }
    setSecondsPerIteration(state, double(voice().size()) / kRate);
}
BENCHMARK(pitchBySoundTouch)->Arg(26)->Arg(5)->Unit(benchmark::kMillisecond);

#ifdef BENCH_RUBBERBAND
void pitchByRubberBand(benchmark::State& state)
{
    using RubberBand::RubberBandStretcher;
    const int engine = state.range(1) == 3 ? RubberBandStretcher::OptionEngineFiner
                                           : RubberBandStretcher::OptionEngineFaster;
    for ([[maybe_unused]] auto _ : state) {
        RubberBandStretcher stretcher(kRate, 2, RubberBandStretcher::OptionProcessRealTime | engine, 1.0,
                                      double(state.range(0)) / 10);
        std::vector<float> left;
        std::vector<float> right;
        shiftVoice([&](std::vector<float>& block) {
            left.resize(block.size() / 2);
            right.resize(left.size());
            for (size_t i = 0; i < left.size(); ++i) {
                left[i] = block[2 * i];
                right[i] = block[2 * i + 1];
            }
            const float* in[] = {left.data(), right.data()};
            stretcher.process(in, left.size(), false);
            const auto ready = size_t(std::max(0, stretcher.available()));
            left.resize(ready);
            right.resize(ready);
            float* out[] = {left.data(), right.data()};
            stretcher.retrieve(out, ready);
        });
    }
    setSecondsPerIteration(state, double(voice().size()) / kRate);
}
BENCHMARK(pitchByRubberBand)
    ->Args({26, 2})
    ->Args({5, 2})
    ->Args({26, 3})
    ->Args({5, 3})
    ->Unit(benchmark::kMillisecond);
#endif

} // namespace

BENCHMARK_MAIN();
