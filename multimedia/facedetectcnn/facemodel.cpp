#include "multimedia/facedetectcnn/filters.h"
#include "multimedia/facedetectcnn/modellayout.h"

#include <utility>

/// @file
/// The model file as constant data of the library. The build has judged the file before this is compiled.

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the model file is little endian");

using facedetectcnn::kBiasCount;
using facedetectcnn::kLayers;
using facedetectcnn::kWeightCount;

extern "C" {
__attribute__((visibility("hidden"))) extern const signed char facemodel_weights[kWeightCount];
__attribute__((visibility("hidden"))) extern const std::int32_t facemodel_biases[kBiasCount];
}

static_assert(sizeof(facedetectcnn::ModelHeader) == 24 && kWeightCount == 2318176);
__asm__(".pushsection .rodata, \"a\", %progbits\n"
        ".balign 64\n"
        ".globl facemodel_weights\n"
        ".hidden facemodel_weights\n"
        "facemodel_weights:\n"
        ".incbin \"" FACE_MODEL_FILE "\", 24, 2318176\n"
        ".balign 64\n"
        ".globl facemodel_biases\n"
        ".hidden facemodel_biases\n"
        "facemodel_biases:\n"
        ".incbin \"" FACE_MODEL_FILE "\", 24 + 2318176\n"
        ".popsection\n");

namespace {

constexpr ConvInfo row(std::size_t layer)
{
    const facedetectcnn::LayerShape& shape = kLayers[layer];
    return {shape.pad,
            shape.stride,
            shape.kernelSize,
            shape.channels,
            shape.filterCount,
            shape.scale,
            facemodel_weights + facedetectcnn::weightsBefore(layer),
            facemodel_biases + facedetectcnn::biasesBefore(layer)};
}

template<std::size_t... Layer>
constexpr std::array<ConvInfo, sizeof...(Layer)> table(std::index_sequence<Layer...>)
{
    return {{row(Layer)...}};
}

} // namespace

constexpr std::array<ConvInfo, 24> param_pConvInfo = table(std::make_index_sequence<kLayers.size()>());
