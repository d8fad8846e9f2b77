#pragma once

#include "multimedia/facedetectcnn/datablob.h"
#include "multimedia/facedetectcnn/facedetectcnn.h"

#include <array>
#include <vector>

/// @file
/// The network itself: 24 convolutions, five poolings, four branches; and the faces in what it says.

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

/// The faces that the branches of an image of this size tell of, best first. The reference goes through all
/// values stage by stage, as is done, too, where a stage has failed, since these say what is missing; the
/// other families of kernels look at those prior boxes only that could become a face, to the same bits.
std::vector<FaceRect_> facesIn(const Branches& branches, std::int32_t width, std::int32_t height);

} // namespace facedetectcnn
