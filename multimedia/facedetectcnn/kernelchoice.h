#pragma once

#include "multimedia/facedetectcnn/kernelfamily.h"

#include <string>
#include <vector>

/// @file
/// Which family of kernels runs. Found once, from what the processor and the system grant and from the
/// environment: MULTIMEDIA_FACE_KERNELS_OFF names families that are not to run, separated by commas.

namespace facedetectcnn {

/// The families that can run here ("amx", "avx512vnni", "avx2", "neondot", "scalar"), best first, without
/// those that the environment switches off; the scalar reference is always there, last. Any thread.
const std::vector<const KernelFamily*>& kernelFamilies();

/// What `kernelFamilies` finds, with the families to leave out as an argument. A name that is none of a
/// family of this build's, or the reference's, gives a line on the standard error stream.
std::vector<const KernelFamily*> findKernelFamilies(std::string switchedOff);

/// The family in use: the best, or the one settled on, unless another was forced. Any thread.
const KernelFamily& kernelFamily();

/// Makes a family the one in use where none is forced. It must outlive the process's last detection. Any
/// thread.
void settleKernelFamily(const KernelFamily& family);

/// Forces a family for the whole process, or the best one again when it is null. It must be one that can run
/// here and outlive its use. Any thread; detections under way go on with either, to the same result.
void forceKernelFamily(const KernelFamily* family);

} // namespace facedetectcnn
