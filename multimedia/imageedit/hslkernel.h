#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// @file
/// The arithmetic of the colour adjustment, in one form for each vector unit. All forms give the same bits.

namespace ImageEdit {

/// Offsets as fractions of the full scale; none may be NaN.
struct HslOffsets
{
    double hue;
    double saturation;
    double lightness;
};

/// Adjusts `count` pixels 0xAARRGGBB in place.
using HslAdjust = void (*)(uint32_t* pixels, size_t count, const HslOffsets& offsets);

struct HslKernel
{
    const char* name;
    HslAdjust adjust;
};

/// The forms that this processor can run, the fastest first. The last one runs everywhere.
const std::vector<HslKernel>& hslKernels();

} // namespace ImageEdit
