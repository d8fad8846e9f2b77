#pragma once

#include "multimedia/facedetectcnn/facedetectcnn.h"

#include <array>
#include <cstdint>
#include <vector>

/// @file
/// The face network once more, written for clarity alone and without a line of the library's: planar tensors,
/// whole windows with explicit zeros around the picture, sums in 64 bits that are cut to 32 at the end.

namespace slowfacenet {

struct Layer
{
    int kernelSize = 0;
    int stride = 0;
    int inputs = 0;
    int outputs = 0;
    float scale = 0.0F;
    std::vector<signed char> weights; ///< output, input, row, column
    std::vector<std::int32_t> biases;
};
using Model = std::array<Layer, 24>;

/// Weights that keep the numbers of all layers at a sane size.
Model randomModel(std::uint32_t seed);

struct Image
{
    int width;
    int height;
    int step;
    std::vector<unsigned char> bytes; ///< exactly up to the last pixel of the last row
};
Image randomImage(std::uint32_t seed, int width, int height, int padding);

struct Head
{
    std::vector<std::int32_t> values; ///< row, column, channel
    float scale;
};

struct Branch
{
    std::vector<float> priors;
    Head location;
    Head confidence;
};

/// The four branches; the sides of the image must be 63 or more.
std::vector<Branch> run(const Model& model, const Image& image);

std::vector<FaceRect_> decode(const std::vector<Branch>& branches, const Image& image);

} // namespace slowfacenet
