// What a frame costs on its way through the stages, apart from coding it.

#include "multimedia/base/crop.h"
#include "multimedia/base/scale.h"
#include "multimedia/base/stage.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include <benchmark/benchmark.h>

#include <atomic>
#include <thread>

using namespace multimedia;

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

FrameHandle screenFrame()
{
    FrameHandle frame = createFrame();
    frame->width = kWidth;
    frame->height = kHeight;
    frame->format = AV_PIX_FMT_BGR0;
    av_frame_get_buffer(frame.get(), 0);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < frame->linesize[0]; ++x)
            frame->data[0][y * frame->linesize[0] + x] = uint8_t(x * 7 + y * 13);
    return frame;
}

FrameHandle referenceOf(const FrameHandle& frame)
{
    FrameHandle reference = createFrame();
    av_frame_ref(reference.get(), frame.get());
    return reference;
}

void waitFor(const std::atomic<int64_t>& count, int64_t wanted)
{
    while (count < wanted)
        std::this_thread::yield();
}

/// A handle pushed into a queue and a pass of the Worker for it.
///
/// @param one_at_a_time  the next frame comes when the pass is done, as in a recording; else the queue is
/// never empty,
///                       and what is measured is the lock and the list
void queueAndWorker(benchmark::State& state, bool one_at_a_time)
{
    std::atomic<int64_t> taken = 0;
    StageInput<FrameHandle>* queue = nullptr;
    StageInput<FrameHandle> input([&] {
        taken += int64_t(queue->take().size());
        return queue->refilled();
    });
    queue = &input;
    int64_t pushed = 0;
    for ([[maybe_unused]] auto _ : state) {
        input.push(createFrame());
        ++pushed;
        if (one_at_a_time)
            waitFor(taken, pushed);
    }
    waitFor(taken, pushed);
    input.finish();
}
BENCHMARK_CAPTURE(queueAndWorker, one_at_a_time, true)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(queueAndWorker, under_load, false)->UseRealTime()->Unit(benchmark::kMicrosecond);

void crop(benchmark::State& state)
{
    const FrameHandle frame = screenFrame();
    std::atomic<int64_t> done = 0;
    int64_t pushed = 0;
    Crop stage({[&](FrameHandle) { ++done; }, {101, 51, 1280, 720}});
    for ([[maybe_unused]] auto _ : state) {
        stage.crop(referenceOf(frame));
        waitFor(done, ++pushed);
    }
}
BENCHMARK(crop)->UseRealTime()->Unit(benchmark::kMicrosecond);

/// Screen to encoder at the size of the screen, and a GIF of half the size.
void scale(benchmark::State& state, int divisor, AVPixelFormat format)
{
    const FrameHandle frame = screenFrame();
    std::atomic<int64_t> done = 0;
    int64_t pushed = 0;
    Scale stage({[&](FrameHandle) { ++done; }, {kWidth / divisor, kHeight / divisor}, format});
    for ([[maybe_unused]] auto _ : state) {
        stage.scale(referenceOf(frame));
        waitFor(done, ++pushed);
    }
    state.SetBytesProcessed(state.iterations() * kWidth * kHeight * 4);
}
BENCHMARK_CAPTURE(scale, to_yuv420p, 1, AV_PIX_FMT_YUV420P)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(scale, to_rgb8_half, 2, AV_PIX_FMT_RGB8)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
