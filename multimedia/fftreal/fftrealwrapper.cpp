#include "multimedia/fftreal/fftrealwrapper.h"

#include "multimedia/base/warning.h"

#include <algorithm>
#include <array>

namespace {
constexpr int kHalf = FFTRealWrapper::kPoints / 2;
}

struct FFTRealWrapper::Buffers
{
    alignas(64) std::array<float, kPoints> samples;
    alignas(64) std::array<AVComplexFloat, kHalf + 1> bins;
};

FFTRealWrapper::FFTRealWrapper()
    : buffers(std::make_unique<Buffers>())
{
    AVTXContext* made = nullptr;
    const float scale = 1.0F;
    const int result = av_tx_init(&made, &transform, AV_TX_FLOAT_RDFT, 0, kPoints, &scale, 0);
    context.reset(made);
    if (result < 0)
        multimedia::warning("FFTRealWrapper", "error to set up the transform", result);
}

FFTRealWrapper::~FFTRealWrapper() = default;

void FFTRealWrapper::calculateFFT(float* out, const float* in)
{
    if (!context) {
        std::fill_n(out, kPoints, 0.0F);
        return;
    }
    std::copy_n(in, kPoints, buffers->samples.begin());
    transform(context.get(), buffers->bins.data(), buffers->samples.data(), sizeof(float));
    for (int k = 0; k <= kHalf; ++k)
        out[k] = buffers->bins[size_t(k)].re;
    for (int k = 1; k < kHalf; ++k)
        out[kHalf + k] = buffers->bins[size_t(k)].im;
}
