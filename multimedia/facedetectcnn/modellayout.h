#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// @file
/// The shape of the face model and of the file that holds it.
///
/// The file is little endian: a `ModelHeader`; the weights of the layers, one layer after the other; the
/// biases of the layers likewise, 32 bits each. Inside a layer the filters stand one behind the other; inside
/// a filter's weights the order is channel, row, column.

namespace facedetectcnn {

/// One convolution of the network.
struct LayerShape
{
    std::int32_t pad;
    std::int32_t stride;
    std::int32_t kernelSize;
    std::int32_t channels;    ///< of the input
    std::int32_t filterCount; ///< channels of the output
    float scale;              ///< stored weight = real weight * scale

    constexpr std::int32_t weightsPerFilter() const { return kernelSize * kernelSize * channels; }
    constexpr std::int32_t weightCount() const { return weightsPerFilter() * filterCount; }
};

/// Layer 0 is the stem, 1 to 15 the backbone, 16 to 23 the heads: location and confidence of four branches.
inline constexpr std::array<LayerShape, 24> kLayers = {{
    {1, 2, 3, 3, 32, 7261.28564F},    {0, 1, 1, 32, 16, 70.4242859F},   {1, 1, 3, 16, 32, 105.353317F},
    {0, 1, 1, 32, 32, 102.571922F},   {1, 1, 3, 32, 64, 213.187363F},   {0, 1, 1, 64, 32, 47.9828072F},
    {1, 1, 3, 32, 64, 81.0171127F},   {1, 1, 3, 64, 128, 908.274902F},  {0, 1, 1, 128, 64, 98.6974487F},
    {1, 1, 3, 64, 128, 41.8721695F},  {1, 1, 3, 128, 256, 2682.20532F}, {0, 1, 1, 256, 128, 104.257317F},
    {1, 1, 3, 128, 256, 57.7951927F}, {1, 1, 3, 256, 256, 4739.41064F}, {0, 1, 1, 256, 256, 150.196915F},
    {1, 1, 3, 256, 256, 117.236702F}, {1, 1, 3, 64, 42, 249.860596F},   {1, 1, 3, 64, 6, 319.911530F},
    {1, 1, 3, 128, 28, 329.790100F},  {1, 1, 3, 128, 4, 393.914368F},   {1, 1, 3, 256, 28, 777.063721F},
    {1, 1, 3, 256, 4, 707.699585F},   {1, 1, 3, 256, 42, 1242.70361F},  {1, 1, 3, 256, 6, 845.599976F},
}};

constexpr std::int32_t weightsBefore(std::size_t layer)
{
    std::int32_t count = 0;
    for (std::size_t i = 0; i < layer; ++i)
        count += kLayers[i].weightCount();
    return count;
}

constexpr std::int32_t biasesBefore(std::size_t layer)
{
    std::int32_t count = 0;
    for (std::size_t i = 0; i < layer; ++i)
        count += kLayers[i].filterCount;
    return count;
}

inline constexpr std::int32_t kWeightCount = weightsBefore(kLayers.size());
inline constexpr std::int32_t kBiasCount = biasesBefore(kLayers.size());
inline constexpr std::uint32_t kPayloadBytes = kWeightCount + kBiasCount * sizeof(std::int32_t);
static_assert(kWeightCount == 2318176 && kBiasCount == 2160);

struct ModelHeader
{
    std::array<char, 8> magic;
    std::uint32_t version;
    std::uint32_t rows;         ///< layers
    std::uint32_t payloadBytes; ///< behind the header
    std::uint32_t checksum;     ///< CRC-32 of the payload, as zlib's crc32() gives it
};
static_assert(sizeof(ModelHeader) == 24);

inline constexpr std::array<char, 8> kModelMagic = {'F', 'A', 'C', 'E', 'C', 'N', 'N', '\n'};
inline constexpr std::uint32_t kModelVersion = 1;

} // namespace facedetectcnn
