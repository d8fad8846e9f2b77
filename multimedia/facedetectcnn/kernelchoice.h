#pragma once

#include "multimedia/facedetectcnn/kernelfamily.h"

#include <string_view>
#include <vector>

/// @file
/// Which family of kernels runs. Found once, from what the processor and the system grant.

namespace facedetectcnn {

/// The families that can run here, best first; the scalar reference is always there, last. Any thread.
const std::vector<const KernelFamily*>& kernelFamilies();

/// The family in use: the best, unless another was forced. Any thread.
const KernelFamily& kernelFamily();

/// Forces the family of this name ("amx", "avx512vnni", "avx2", "neondot", "scalar") for the whole process,
/// or the best one when the name is empty. False, with nothing changed, when it cannot run here. Any thread;
/// detections under way go on with either, to the same result.
bool setKernelFamily(std::string_view name);

} // namespace facedetectcnn
