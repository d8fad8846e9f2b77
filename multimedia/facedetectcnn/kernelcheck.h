#pragma once

#include "multimedia/facedetectcnn/kernelfamily.h"

#include <vector>

struct Filters;

/// @file
/// Whether kernels calculate rightly on the processor at hand.

namespace facedetectcnn {

/// The first of `families` that makes of one small made-up input what the scalar reference makes of it, to
/// the bit, as bytes behind the ReLU; the last of them if none before does. Each family that is passed over
/// gives a line on the standard error stream. Without memory for the comparison it is the first. Any thread.
const KernelFamily& firstSoundFamily(const std::vector<const KernelFamily*>& families, const Filters& layer);

} // namespace facedetectcnn
