#include "multimedia/facedetectcnn/kernelcheck.h"

#include "multimedia/facedetectcnn/filters.h"
#include "multimedia/facedetectcnn/kernels.h"

#include <cstdio>
#include <cstring>

namespace facedetectcnn {
namespace {

using Activation = CDataBlob<unsigned char>;

/// More pixels a row than the widest tiles take, and all kinds of border.
bool fillInput(std::int32_t channels, Activation* input)
{
    if (!input->create(37, 5, channels))
        return false;
    input->bias = 100;
    std::uint32_t state = 1;
    for (std::size_t i = 0; i < input->pixelCount(); ++i) {
        for (std::int32_t c = 0; c < channels; ++c) {
            state = state * 1664525 + 1013904223;
            input->data[i * input->channelStep + c] = static_cast<unsigned char>(state >> 24U);
        }
    }
    return true;
}

bool isSame(const Activation& a, const Activation& b)
{
    return a.scale == b.scale && a.bias == b.bias &&
           std::memcmp(a.data, b.data, a.pixelCount() * a.channelStep) == 0;
}

} // namespace

const KernelFamily& firstSoundFamily(const std::vector<const KernelFamily*>& families, const Filters& layer)
{
    Activation input;
    Activation expected;
    Activation output;
    if (!areFiltersFilled(layer) || !fillInput(layer.filters.front()->channels, &input) ||
        !convolution_relu(kScalarKernels, input, layer, &expected))
        return *families.front();
    for (const KernelFamily* family : families) {
        if (!convolution_relu(*family, input, layer, &output) || isSame(output, expected))
            return *family;
        std::fprintf(stderr, "face detection: the kernels \"%s\" calculate wrongly here and are not used\n",
                     family->name);
    }
    return *families.back();
}

} // namespace facedetectcnn
