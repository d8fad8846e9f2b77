#pragma once

#include "multimedia/facedetectcnn/datablob.h"

#include <array>

/// @file
/// The network itself: 24 convolutions, five poolings, four branches.

namespace facedetectcnn {

/// What one branch says about its grid of cells.
struct Branch
{
    CDataBlob<float> priors;             ///< 4 values a prior box
    CDataBlob<std::int32_t> locations;   ///< 14 values a prior box
    CDataBlob<std::int32_t> confidences; ///< 2 values a prior box
};
using Branches = std::array<Branch, 4>;

/// Runs the image (blue, green, red) through the network. No stage's result is tested: a stage that fails
/// leaves its output empty and says so on the standard error stream, and so do all that depend on it. Any
/// thread.
void runNetwork(const unsigned char* image, std::int32_t width, std::int32_t height, std::int32_t step,
                Branches* branches);

} // namespace facedetectcnn
