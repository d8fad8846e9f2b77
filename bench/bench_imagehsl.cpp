// The colour adjustment of a 3840x2160 picture beside the plain QColor loop. "ratio" says how many times
// faster than that loop; a run ends with an error if the pictures differ.

#include "multimedia/imageedit/hslkernel.h"
#include "multimedia/imageedit/imagehsl.h"

#include <QtGui/QColor>
#include <QtGui/QImage>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <random>

namespace {

// Exact as float too, so that both variants have one outcome.
constexpr ImageEdit::HslOffsets kOffsets{0.0625, -0.125, 0.03125};

QImage makePicture()
{
    QImage picture(3840, 2160, QImage::Format_ARGB32);
    std::mt19937 random(1);
    auto* pixels = reinterpret_cast<uint32_t*>(picture.bits());
    std::generate_n(pixels, size_t(picture.width()) * size_t(picture.height()), std::ref(random));
    return picture;
}

void adjustByQColor(QImage& image)
{
    auto* pixel = reinterpret_cast<uint32_t*>(image.bits());
    const uint32_t* const end = pixel + size_t(image.width()) * size_t(image.height());
    QColor color;
    for (; pixel != end; ++pixel) {
        color.setRed(int(*pixel >> 16 & 0xff));
        color.setGreen(int(*pixel >> 8 & 0xff));
        color.setBlue(int(*pixel & 0xff));
        color.setHslF(std::clamp(color.hueF() + kOffsets.hue, 0.0, 1.0),
                      std::clamp(color.saturationF() + kOffsets.saturation, 0.0, 1.0),
                      std::clamp(color.lightnessF() + kOffsets.lightness, 0.0, 1.0), 1.0);
        color.setAlpha(int(*pixel >> 24));
        *pixel = color.rgba();
    }
}

struct Reference
{
    QImage picture = makePicture();
    QImage expected;
    double seconds = 0.0; ///< of the QColor loop
};

Reference& reference()
{
    static Reference it;
    return it;
}

void run(benchmark::State& state, const std::function<void(QImage&)>& adjust)
{
    Reference& it = reference();
    double total = 0.0;
    for ([[maybe_unused]] auto _ : state) {
        QImage image = it.picture.copy();
        const auto start = std::chrono::steady_clock::now();
        adjust(image);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        total += seconds;
        if (it.expected.isNull())
            it.expected = image;
        else if (image != it.expected)
            state.SkipWithError("the picture differs from QColor's");
    }
    const double mean = total / double(state.iterations());
    if (it.seconds == 0.0)
        it.seconds = mean;
    state.counters["ratio"] = it.seconds / mean;
    state.counters["pixels/s"] = it.picture.width() * double(it.picture.height()) / mean;
}

void addBenchmark(const std::string& name, const std::function<void(QImage&)>& adjust)
{
    benchmark::RegisterBenchmark(name.c_str(), [adjust](benchmark::State& state) { run(state, adjust); })
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    addBenchmark("QColor loop", adjustByQColor);
    addBenchmark("modifyHsl", [](QImage& image) {
        modifyHsl(image, kOffsets.hue, kOffsets.saturation, kOffsets.lightness);
    });
    addBenchmark("modifyHslInThread", [](QImage& image) {
        modifyHslInThread(image, kOffsets.hue, kOffsets.saturation, kOffsets.lightness);
    });
    for (const ImageEdit::HslKernel& kernel : ImageEdit::hslKernels())
        addBenchmark(std::string("kernel ") + kernel.name, [adjust = kernel.adjust](QImage& image) {
            adjust(reinterpret_cast<uint32_t*>(image.bits()), size_t(image.width()) * size_t(image.height()),
                   kOffsets);
        });
    benchmark::RunSpecifiedBenchmarks();
}
