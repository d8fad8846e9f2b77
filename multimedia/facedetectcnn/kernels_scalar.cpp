#include "multimedia/facedetectcnn/kernelfamily.h"

/// @file
/// The plain loops that all other families are compared with.

namespace facedetectcnn {
namespace {

void requantise(const std::int32_t* values, unsigned char* bytes, std::size_t count, float ratio)
{
    for (std::size_t i = 0; i < count; ++i) {
        const std::int32_t value = values[i] > 0 ? values[i] : 0;
        bytes[i] = static_cast<unsigned char>(static_cast<float>(value) * ratio + 0.499F);
    }
}

void poolRow(const unsigned char* upper, const unsigned char* lower, unsigned char* output,
             std::int32_t pixels, std::int32_t step)
{
    const auto largest = [](unsigned char a, unsigned char b) { return a > b ? a : b; };
    for (std::int32_t x = 0; x < pixels; ++x, upper += 2 * step, lower += 2 * step, output += step) {
        for (std::int32_t i = 0; i < step; ++i)
            output[i] = largest(largest(upper[i], upper[step + i]), largest(lower[i], lower[step + i]));
    }
}

void unfoldRow(const unsigned char* const* rows, std::int32_t width, unsigned char* output)
{
    for (std::int32_t column = 0; column < width; column += 2, output += 32)
        unfoldPixel(rows, width, column, output);
}

} // namespace

const KernelFamily kScalarKernels = {"scalar", 0, nullptr, requantise, poolRow, unfoldRow};

} // namespace facedetectcnn
