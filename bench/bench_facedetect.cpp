#include "bench/int8peak.h"
#include "bench/median.h"
#include "multimedia/facedetectcnn/facedetectcnn.h"
#include "multimedia/facedetectcnn/filters.h"
#include "multimedia/facedetectcnn/kernelchoice.h"
#include "multimedia/facedetectcnn/kernels.h"
#include "multimedia/facedetectcnn/modellayout.h"
#include "multimedia/facedetectcnn/network.h"
#include "tests/support/slowfacenet.h"

#include <benchmark/benchmark.h>

#ifdef BENCH_WITH_ONEDNN
#    include "bench/onednnconvolution.h"
#endif
#ifdef BENCH_WITH_OPENCV
#    include "bench/opencvnetwork.h"
#endif

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

/// @file
/// The face network layer by layer and whole, for each kernel family, on one thread. Every iteration runs the
/// same shapes through oneDNN too where that is there, so that the ratio holds on a machine that others use
/// as well; all figures are medians. Seeds are fixed; the time does not depend on the values but for the
/// decoding.
///
/// Counters: `us` ours, `GMAC/s`, `peak` the share of the measured int8 peak, `theirs_us`, and `ratio` = ours
/// / theirs, which is oneDNN but in `opencv`: there OpenCV's DNN module runs the whole network in floats. The
/// whole network counts everything from the image to the faces, against the sum of oneDNN's
/// convolutions alone. `DNNL_MAX_CPU_ISA=AVX2` holds oneDNN down to AVX2.

namespace {

using Clock = std::chrono::steady_clock;
using facedetectcnn::kLayers;

struct ImageSize
{
    std::int32_t width;
    std::int32_t height;
};

/// What one layer gets for an image: the stem takes the unfolded image through 1x1 filters.
struct LayerRun
{
    std::int32_t width;
    std::int32_t height;
    std::int32_t channels;
    std::int32_t kernelSize;
    std::int32_t filterCount;

    double products() const
    {
        return static_cast<double>(width) * height * channels * kernelSize * kernelSize * filterCount;
    }
};

/// How often the image has been halved where a layer stands.
constexpr std::array<int, 24> kHalvings = {1, 1, 2, 2, 3, 3, 3, 4, 4, 4, 5, 5,
                                           5, 6, 6, 6, 3, 3, 4, 4, 5, 5, 6, 6};

LayerRun layerRun(std::size_t layer, ImageSize image)
{
    LayerRun run = {(image.width + 1) / 2, (image.height + 1) / 2, kLayers[layer].channels,
                    kLayers[layer].kernelSize, kLayers[layer].filterCount};
    for (int i = 1; i < kHalvings[layer]; ++i) {
        run.width /= 2;
        run.height /= 2;
    }
    if (layer == 0) {
        run.channels = kLayers[0].weightsPerFilter();
        run.kernelSize = 1;
    }
    return run;
}

double microseconds(const std::function<void()>& work)
{
    const Clock::time_point start = Clock::now();
    work();
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

double peak()
{
    static const double measured = measureInt8Peak();
    return measured;
}

/// Times `ours` and `theirs` in turn.
void compare(benchmark::State& state, double products, const std::function<void()>& ours,
             const std::function<void()>& theirs)
{
    std::vector<double> ourTimes;
    std::vector<double> theirTimes;
    std::vector<double> ratios;
    while (state.KeepRunning()) {
        ourTimes.push_back(microseconds(ours));
        state.SetIterationTime(ourTimes.back() * 1e-6);
        if (theirs) {
            theirTimes.push_back(microseconds(theirs));
            ratios.push_back(ourTimes.back() / theirTimes.back());
        }
    }
    const double time = median(ourTimes);
    state.counters["us"] = time;
    state.counters["GMAC/s"] = products / time / 1e3;
    if (peak() > 0.0)
        state.counters["peak"] = products / (time * 1e-6) / peak();
    if (theirs) {
        state.counters["theirs_us"] = median(theirTimes);
        state.counters["ratio"] = median(ratios);
    }
}

std::function<void()> oneDnnLayer(const LayerRun& run)
{
#ifdef BENCH_WITH_ONEDNN
    const auto work = std::make_shared<OneDnnConvolution>(run.width, run.height, run.channels, run.kernelSize,
                                                          run.filterCount);
    return [work] { work->run(); };
#else
    static_cast<void>(run);
    return {};
#endif
}

std::function<void()> oneDnnNetwork(ImageSize image)
{
    std::vector<std::function<void()>> layers;
    for (std::size_t layer = 0; layer < kLayers.size(); ++layer)
        layers.push_back(oneDnnLayer(layerRun(layer, image)));
    if (!layers.front())
        return {};
    return [layers] {
        for (const auto& layer : layers)
            layer();
    };
}

std::vector<unsigned char> randomBytes(std::size_t count)
{
    std::mt19937 generator(1);
    std::vector<unsigned char> bytes(count);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<unsigned char>(generator()); });
    return bytes;
}

/// What a layer's convolution reads and writes.
struct LayerBlobs
{
    LayerBlobs(std::size_t index, ImageSize image)
        : layer(index)
    {
        const LayerRun run = layerRun(layer, image);
        input.create(run.width, run.height, run.channels);
        const auto bytes = randomBytes(static_cast<std::size_t>(run.channels));
        for (std::int32_t y = 0; y < run.height; ++y) {
            for (std::int32_t x = 0; x < run.width; ++x)
                std::copy(bytes.begin(), bytes.end(), input.pixel(x, y));
        }
    }
    void run() { convolution(input, g_pFilters[layer], &output); }

    std::size_t layer;
    CDataBlob<unsigned char> input;
    CDataBlob<std::int32_t> output;
};

void benchLayer(benchmark::State& state, ImageSize image, std::size_t layer)
{
    LayerBlobs blobs(layer, image);
    const LayerRun run = layerRun(layer, image);
    compare(
        state, run.products(), [&] { blobs.run(); }, oneDnnLayer(run));
}

double productsOf(ImageSize image)
{
    double products = 0.0;
    for (std::size_t layer = 0; layer < kLayers.size(); ++layer)
        products += layerRun(layer, image).products();
    return products;
}

void benchAllLayers(benchmark::State& state, ImageSize image, const std::function<void()>& ours)
{
    compare(state, productsOf(image), ours, oneDnnNetwork(image));
}

/// The convolutions alone, into 32-bit sums, as oneDNN does them.
void benchConvolutions(benchmark::State& state, ImageSize image)
{
    std::vector<std::unique_ptr<LayerBlobs>> layers;
    for (std::size_t layer = 0; layer < kLayers.size(); ++layer)
        layers.push_back(std::make_unique<LayerBlobs>(layer, image));
    benchAllLayers(state, image, [&] {
        for (const auto& layer : layers)
            layer->run();
    });
}

/// From the image to the heads: with unfolding, requantisation and pooling.
void benchHeads(benchmark::State& state, ImageSize image)
{
    const auto pixels = randomBytes(3U * image.width * image.height);
    benchAllLayers(state, image, [&] {
        facedetectcnn::Branches branches;
        facedetectcnn::runNetwork(pixels.data(), image.width, image.height, 3 * image.width, &branches);
    });
}

/// From the image to the faces: with decoding, which grows with what the model takes for faces.
void benchFaces(benchmark::State& state, ImageSize image)
{
    const auto pixels = randomBytes(3U * image.width * image.height);
    benchAllLayers(state, image, [&] {
        benchmark::DoNotOptimize(objectdetect_cnn(pixels.data(), image.width, image.height, 3 * image.width));
    });
}

#ifdef BENCH_WITH_OPENCV
void benchBesideOpenCv(benchmark::State& state, ImageSize image)
{
    const auto pixels = randomBytes(3U * image.width * image.height);
    OpenCvNetwork network(image.width, image.height);
    compare(
        state, productsOf(image),
        [&] {
            benchmark::DoNotOptimize(
                objectdetect_cnn(pixels.data(), image.width, image.height, 3 * image.width));
        },
        [&] { network.run(); });
}
#endif

/// From the heads to the faces, with weights that make some six thousand prior boxes candidates. No ratio.
void benchDecoding(benchmark::State& state, ImageSize image)
{
    const slowfacenet::Model model = slowfacenet::randomModel(1);
    std::array<ConvInfo, 24> table = param_pConvInfo;
    for (std::size_t i = 0; i < table.size(); ++i) {
        table[i].weights = model[i].weights.data();
        table[i].biases = model[i].biases.data();
    }
    facedetectcnn::buildBank(table, &g_pFilters);
    const auto pixels = randomBytes(3U * image.width * image.height);
    std::vector<double> times;
    while (state.KeepRunning()) {
        facedetectcnn::Branches branches;
        facedetectcnn::runNetwork(pixels.data(), image.width, image.height, 3 * image.width, &branches);
        times.push_back(microseconds(
            [&] { benchmark::DoNotOptimize(facedetectcnn::facesIn(branches, image.width, image.height)); }));
        state.SetIterationTime(times.back() * 1e-6);
    }
    state.counters["us"] = median(times);
    facedetectcnn::buildBank(param_pConvInfo, &g_pFilters);
}

void registerBenchmark(const std::string& part, ImageSize image, const facedetectcnn::KernelFamily* family,
                       const std::function<void(benchmark::State&)>& work)
{
    const std::string name =
        part + "/" + std::to_string(image.width) + "x" + std::to_string(image.height) + "/" + family->name;
    benchmark::RegisterBenchmark(name.c_str(),
                                 [family, work](benchmark::State& state) {
                                     facedetectcnn::forceKernelFamily(family);
                                     work(state);
                                 })
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
}

void registerAll(const facedetectcnn::KernelFamily* family, ImageSize image)
{
    registerBenchmark("faces", image, family, [image](benchmark::State& state) { benchFaces(state, image); });
#ifdef BENCH_WITH_OPENCV
    registerBenchmark("opencv", image, family,
                      [image](benchmark::State& state) { benchBesideOpenCv(state, image); });
#endif
    registerBenchmark("heads", image, family, [image](benchmark::State& state) { benchHeads(state, image); });
    registerBenchmark("decoding", image, family,
                      [image](benchmark::State& state) { benchDecoding(state, image); });
    registerBenchmark("convolutions", image, family,
                      [image](benchmark::State& state) { benchConvolutions(state, image); });
    for (std::size_t layer = 0; layer < kLayers.size(); ++layer)
        registerBenchmark("layer" + std::to_string(layer), image, family,
                          [image, layer](benchmark::State& state) { benchLayer(state, image, layer); });
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    init_parameters();
    benchmark::AddCustomContext("int8 peak of one core, GMAC/s", std::to_string(peak() / 1e9));
    for (const ImageSize image : {ImageSize{320, 240}, ImageSize{480, 360}, ImageSize{480, 480}}) {
        for (const facedetectcnn::KernelFamily* family : facedetectcnn::kernelFamilies())
            registerAll(family, image);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
