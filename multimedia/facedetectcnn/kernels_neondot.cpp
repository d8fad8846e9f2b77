#include "multimedia/facedetectcnn/kernelfamily.h"

#include <arm_neon.h>

/// @file
/// NEON with the dot product extension, which multiplies bytes of one signedness only. Input bytes are
/// shifted to -128..127, and 128 times the sum of the weights is put back: the 32-bit sums wrap to the same
/// bits.

namespace facedetectcnn {
namespace {

constexpr int kPixelsAtOnce = 4;
constexpr int kQuarters = 4; ///< vectors of 4 filters in a block of 16
constexpr int kGroupBytes = 64;

int8x16_t shifted(const unsigned char* bytes)
{
    return vreinterpretq_s8_u8(veorq_u8(vld1q_u8(bytes), vdupq_n_u8(0x80)));
}

/// The biases, and what the shift of the input takes away.
void startingSums(const ConvolutionSpan& span, int32x4_t* sums)
{
    const int8x16_t shift = vdupq_n_s8(-128);
    int32x4_t shiftedAway[kQuarters] = {};
    for (std::int32_t row = 0; row < span.rows; ++row) {
        const signed char* weights = span.weights + row * span.weightRowStep;
        for (std::int32_t i = 0; i < span.runBytes; i += 4, weights += kGroupBytes) {
            for (int q = 0; q < kQuarters; ++q)
                shiftedAway[q] = vdotq_s32(shiftedAway[q], vld1q_s8(weights + 16 * q), shift);
        }
    }
    for (int q = 0; q < kQuarters; ++q)
        sums[q] = vsubq_s32(vmulq_n_s32(vld1q_s32(span.biases + 4 * q), span.inputBias), shiftedAway[q]);
}

template<int Group, int Pixels>
void multiplyGroup(const signed char* weights, const int8x16_t* bytes, int32x4_t (*sums)[kQuarters])
{
    for (int q = 0; q < kQuarters; ++q) {
        const int8x16_t group = vld1q_s8(weights + Group * kGroupBytes + 16 * q);
        for (int p = 0; p < Pixels; ++p)
            sums[p][q] = vdotq_laneq_s32(sums[p][q], group, bytes[p], Group);
    }
}

void store(std::int32_t* output, int32x4_t values, std::int32_t filters)
{
    if (filters >= 4) {
        vst1q_s32(output, values);
        return;
    }
    std::int32_t lanes[4];
    vst1q_s32(lanes, values);
    for (std::int32_t i = 0; i < filters; ++i)
        output[i] = lanes[i];
}

template<int Pixels>
void convolveTile(const ConvolutionSpan& span, const int32x4_t* start, const unsigned char* input,
                  std::int32_t* output, int32x4_t* largest)
{
    int32x4_t sums[Pixels][kQuarters];
    for (int p = 0; p < Pixels; ++p) {
        for (int q = 0; q < kQuarters; ++q)
            sums[p][q] = start[q];
    }

    for (std::int32_t row = 0; row < span.rows; ++row) {
        const unsigned char* run = input + row * span.rowStep;
        const signed char* weights = span.weights + row * span.weightRowStep;
        for (std::int32_t i = 0; i < span.runBytes; i += 16, weights += 4 * kGroupBytes) {
            int8x16_t bytes[Pixels];
            for (int p = 0; p < Pixels; ++p)
                bytes[p] = shifted(run + p * span.pixelStep + i);
            multiplyGroup<0, Pixels>(weights, bytes, sums);
            multiplyGroup<1, Pixels>(weights, bytes, sums);
            multiplyGroup<2, Pixels>(weights, bytes, sums);
            multiplyGroup<3, Pixels>(weights, bytes, sums);
        }
    }

    for (int p = 0; p < Pixels; ++p) {
        for (int q = 0; q < kQuarters && span.filters > 4 * q; ++q) {
            store(output + p * span.outputStep + 4 * q, sums[p][q], span.filters - 4 * q);
            *largest = vmaxq_s32(*largest, sums[p][q]);
        }
    }
}

using Tile = void (*)(const ConvolutionSpan&, const int32x4_t*, const unsigned char*, std::int32_t*,
                      int32x4_t*);
constexpr Tile kTiles[kPixelsAtOnce + 1] = {nullptr, convolveTile<1>, convolveTile<2>, convolveTile<3>,
                                            convolveTile<4>};

std::int32_t convolveLine(const ConvolutionSpan& span)
{
    int32x4_t start[kQuarters];
    startingSums(span, start);
    int32x4_t largest = vdupq_n_s32(0);
    const unsigned char* input = span.input;
    std::int32_t* output = span.output;
    std::int32_t left = span.pixels;
    for (std::int32_t tiles = (left + kPixelsAtOnce - 1) / kPixelsAtOnce; tiles > 0; --tiles) {
        const std::int32_t pixels = (left + tiles - 1) / tiles;
        kTiles[pixels](span, start, input, output, &largest);
        input += pixels * span.pixelStep;
        output += pixels * span.outputStep;
        left -= pixels;
    }
    return vmaxvq_s32(largest);
}

std::int32_t convolve(const ConvolutionSpan& span)
{
    return convolveLines(span, convolveLine);
}

int32x4_t requantised(const std::int32_t* values, float ratio)
{
    const float32x4_t positive = vcvtq_f32_s32(vmaxq_s32(vld1q_s32(values), vdupq_n_s32(0)));
    return vcvtq_s32_f32(vaddq_f32(vmulq_n_f32(positive, ratio), vdupq_n_f32(0.499F)));
}

void requantise(const std::int32_t* values, unsigned char* bytes, std::size_t count, float ratio)
{
    std::size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        const int16x8_t low = vcombine_s16(vqmovn_s32(requantised(values + i, ratio)),
                                           vqmovn_s32(requantised(values + i + 4, ratio)));
        const int16x8_t high = vcombine_s16(vqmovn_s32(requantised(values + i + 8, ratio)),
                                            vqmovn_s32(requantised(values + i + 12, ratio)));
        vst1q_u8(bytes + i, vcombine_u8(vqmovun_s16(low), vqmovun_s16(high)));
    }
    if (i < count)
        kScalarKernels.requantise(values + i, bytes + i, count - i, ratio);
}

void poolRow(const unsigned char* upper, const unsigned char* lower, unsigned char* output,
             std::int32_t pixels, std::int32_t step)
{
    for (std::int32_t x = 0; x < pixels; ++x, upper += 2 * step, lower += 2 * step, output += step) {
        for (std::int32_t i = 0; i < step; i += 16) {
            const uint8x16_t above = vmaxq_u8(vld1q_u8(upper + i), vld1q_u8(upper + step + i));
            const uint8x16_t below = vmaxq_u8(vld1q_u8(lower + i), vld1q_u8(lower + step + i));
            vst1q_u8(output + i, vmaxq_u8(above, below));
        }
    }
}

/// Places of the three rows' first nine bytes in a table of 16 bytes a row; beyond the table stands zero.
constexpr unsigned char kUnfolding[32] = {0,  1,  2,  3,  4,  5,   6,   7,   8,   16, 17,
                                          18, 19, 20, 21, 22, 23,  24,  32,  33,  34, 35,
                                          36, 37, 38, 39, 40, 255, 255, 255, 255, 255};

/// Each row is read 16 bytes at a time, so the last windows, whose 16 bytes could reach beyond the row, go
/// byte by byte.
void unfoldRow(const unsigned char* const* rows, std::int32_t width, unsigned char* output)
{
    std::int32_t column = 0;
    if (width > 0) {
        unfoldPixel(rows, width, column, output);
        column += 2;
        output += 32;
    }
    const uint8x16x2_t places = vld1q_u8_x2(kUnfolding);
    for (; (static_cast<std::ptrdiff_t>(column) - 1) * 3 + 16 <= static_cast<std::ptrdiff_t>(width) * 3;
         column += 2, output += 32) {
        uint8x16x3_t bytes;
        for (int row = 0; row < 3; ++row)
            bytes.val[row] = rows[row] ? vld1q_u8(rows[row] + (static_cast<std::ptrdiff_t>(column) - 1) * 3)
                                       : vdupq_n_u8(0);
        vst1q_u8(output, vqtbl3q_u8(bytes, places.val[0]));
        vst1q_u8(output + 16, vqtbl3q_u8(bytes, places.val[1]));
    }
    for (; column < width; column += 2, output += 32)
        unfoldPixel(rows, width, column, output);
}

} // namespace

const KernelFamily kNeonDotKernels = {"neondot", 1, convolve, requantise, poolRow, unfoldRow};

} // namespace facedetectcnn
