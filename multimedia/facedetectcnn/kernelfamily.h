#pragma once

#include <cstddef>
#include <cstdint>

/// @file
/// What a family of vector kernels offers. Kernel sources are compiled for processors that the machine may
/// not be, so this header and they use plain types only: an inline function of the standard library that the
/// compiler emitted there could be the one the linker keeps for the whole library.

namespace facedetectcnn {

/// Lines of output pixels that all see the same taps of their windows, and the filters to apply.
///
/// A pixel's input is `rows` runs of `runBytes` contiguous bytes. The weights of a block that belong to a run
/// are contiguous too: for each four bytes of input the four weights of 16 filters.
struct ConvolutionSpan
{
    const unsigned char* input;    ///< first run of the first pixel
    std::ptrdiff_t pixelStep;      ///< bytes from a pixel's input to the next pixel's
    std::ptrdiff_t rowStep;        ///< bytes from a run to the next
    std::int32_t rows;             ///< 1 to 3
    std::int32_t runBytes;         ///< a multiple of 16
    std::int32_t pixels;           ///< of a line
    std::int32_t lines;            ///< 1 or more
    std::ptrdiff_t inputLineStep;  ///< bytes from a line's input to the next line's
    std::ptrdiff_t outputLineStep; ///< values from a line's output to the next line's

    const signed char* weights;   ///< of the first run in the first block
    std::ptrdiff_t weightRowStep; ///< bytes from a run's weights to the next run's
    std::ptrdiff_t blockStep;     ///< bytes from a block to the next
    /// Likewise of the first run in the first block, one for each 128 bytes of weights, that is eight of
    /// input: not 0 where any input's products with four weights, the first or the second pair of both
    /// groups, add up to 16 bits.
    const unsigned char* isNarrow;
    const std::int32_t* biases; ///< 16 a block
    std::int32_t inputBias;     ///< factor of the biases
    std::int32_t blocks;        ///< 1 to `blocksAtOnce`
    std::int32_t filters;       ///< filters in these blocks; lanes beyond are not written

    std::int32_t* output;      ///< first filter of the first pixel
    std::ptrdiff_t outputStep; ///< values from a pixel to the next
};

/// The loops of the detector for one instruction set. All families give the same bits.
struct KernelFamily
{
    const char* name;
    /// Blocks of filters that `convolve` takes in one call; 0 for the reference, which has no `convolve`.
    std::int32_t blocksAtOnce;
    /// Computes the lines in wrapping 32-bit arithmetic. Gives the largest value written, at least 0.
    std::int32_t (*convolve)(const ConvolutionSpan& span);
    /// bytes[i] = integer part of max(values[i], 0) * ratio + 0.499, for ratios that keep this below 256.
    void (*requantise)(const std::int32_t* values, unsigned char* bytes, std::size_t count, float ratio);
    /// Largest bytes of 2x2 windows: `pixels` output pixels of `step` bytes from two input rows. `step` is a
    /// multiple of 16.
    void (*poolRow)(const unsigned char* upper, const unsigned char* lower, unsigned char* output,
                    std::int32_t pixels, std::int32_t step);
    /// One row of the stem's unfolded image: (`width` + 1) / 2 pixels of 32 bytes, 27 of them set and 5 zero.
    /// The three rows hold `width` pixels of 3 bytes; a null row is outside the image.
    void (*unfoldRow)(const unsigned char* const* rows, std::int32_t width, unsigned char* output);
};

extern const KernelFamily kScalarKernels;
extern const KernelFamily kAvx2Kernels;
extern const KernelFamily kAvx512VnniKernels;
extern const KernelFamily kAmxKernels;
extern const KernelFamily kNeonDotKernels;

/// `convolve` by a kernel that takes one line: `convolveLine(span)`.
template<class Line>
static inline std::int32_t convolveLines(ConvolutionSpan span, const Line& convolveLine)
{
    std::int32_t largest = 0;
    for (std::int32_t left = span.lines; left > 0; --left) {
        const std::int32_t lineLargest = convolveLine(span);
        largest = lineLargest > largest ? lineLargest : largest;
        span.input += span.inputLineStep;
        span.output += span.outputLineStep;
    }
    return largest;
}

/// One pixel of `unfoldRow`; `column` is the window's centre in the image.
static inline void unfoldPixel(const unsigned char* const* rows, std::int32_t width, std::int32_t column,
                               unsigned char* output)
{
    for (int i = 0; i < 32; ++i)
        output[i] = 0;
    for (int row = 0; row < 3; ++row) {
        for (int tap = -1; tap <= 1 && rows[row]; ++tap) {
            if (column + tap < 0 || column + tap >= width)
                continue;
            const unsigned char* pixel = rows[row] + static_cast<std::ptrdiff_t>(column + tap) * 3;
            unsigned char* target = output + (row * 3 + tap + 1) * 3;
            for (int byte = 0; byte < 3; ++byte)
                target[byte] = pixel[byte];
        }
    }
}

} // namespace facedetectcnn
