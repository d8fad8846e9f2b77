#pragma once

#include "multimedia/facedetectcnn/kernelfamily.h"

#include <vector>

/// @file
/// Which family of kernels runs. Found once, from what the processor and the system grant.

namespace facedetectcnn {

/// The families that can run here ("amx", "avx512vnni", "avx2", "neondot", "scalar"), best first; the scalar
/// reference is always there, last. Any thread.
const std::vector<const KernelFamily*>& kernelFamilies();

/// The family in use: the best, unless another was forced. Any thread.
const KernelFamily& kernelFamily();

/// Forces a family for the whole process, or the best one again when it is null. It must be one that can run
/// here and outlive its use. Any thread; detections under way go on with either, to the same result.
void forceKernelFamily(const KernelFamily* family);

} // namespace facedetectcnn
