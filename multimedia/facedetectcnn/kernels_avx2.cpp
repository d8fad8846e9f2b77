#include "multimedia/facedetectcnn/kernels_x86.h"

/// @file
/// AVX2. Its product of unsigned and signed bytes saturates at 16 bits. Where the weights cannot make it
/// saturate, which is nearly everywhere, the sums of four products stay in 16 bits before they are widened;
/// elsewhere bytes are widened to 16 bits first: of each four channels the even and the odd ones make a pair
/// each, by a mask and a shift alike for input and weights.

namespace facedetectcnn {
namespace {

constexpr int kPixelsAtOnce = 4;
constexpr int kHalves = 2; ///< vectors of 8 filters in a block of 16
constexpr int kPieceBytes = 128;

std::int32_t load32(const unsigned char* bytes)
{
    std::int32_t value = 0;
    __builtin_memcpy(&value, bytes, sizeof(value));
    return value;
}

void store(std::int32_t* output, __m256i values, int filters)
{
    if (filters >= 8) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(output), values);
        return;
    }
    const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    _mm256_maskstore_epi32(output, _mm256_cmpgt_epi32(_mm256_set1_epi32(filters), lanes), values);
}

__m256i loadWeights(const signed char* weights, int vector)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(weights) + vector);
}

/// Eight bytes of a pixel's input by weights whose products add up to 16 bits. Inline, so that the sums stay
/// in registers.
template<int Pixels>
[[gnu::always_inline]] inline void multiplyNarrow(const unsigned char* input, std::ptrdiff_t pixelStep,
                                                  const signed char* weights, __m256i (*sums)[kHalves])
{
    const __m256i ones = _mm256_set1_epi16(1);
#pragma GCC unroll 4
    for (int p = 0; p < Pixels; ++p) {
        const __m256i first = _mm256_set1_epi32(load32(input + p * pixelStep));
        const __m256i second = _mm256_set1_epi32(load32(input + p * pixelStep + 4));
#pragma GCC unroll 2
        for (int half = 0; half < kHalves; ++half) {
            const __m256i pairs =
                _mm256_add_epi16(_mm256_maddubs_epi16(first, loadWeights(weights, half)),
                                 _mm256_maddubs_epi16(second, loadWeights(weights, kHalves + half)));
            sums[p][half] = _mm256_add_epi32(sums[p][half], _mm256_madd_epi16(pairs, ones));
        }
    }
}

/// Four bytes of a pixel's input by any weights. Inline likewise.
template<int Pixels>
[[gnu::always_inline]] inline void multiplyWide(const unsigned char* input, std::ptrdiff_t pixelStep,
                                                const signed char* weights, __m256i (*sums)[kHalves])
{
    const __m256i even_bytes = _mm256_set1_epi32(0x00FF00FF);
    __m256i even_weights[kHalves];
    __m256i odd_weights[kHalves];
#pragma GCC unroll 2
    for (int half = 0; half < kHalves; ++half) {
        const __m256i group = loadWeights(weights, half);
        even_weights[half] = _mm256_srai_epi16(_mm256_slli_epi16(group, 8), 8);
        odd_weights[half] = _mm256_srai_epi16(group, 8);
    }
#pragma GCC unroll 4
    for (int p = 0; p < Pixels; ++p) {
        const __m256i bytes = _mm256_set1_epi32(load32(input + p * pixelStep));
        const __m256i even = _mm256_and_si256(bytes, even_bytes);
        const __m256i odd = _mm256_srli_epi16(bytes, 8);
#pragma GCC unroll 2
        for (int half = 0; half < kHalves; ++half) {
            sums[p][half] = _mm256_add_epi32(sums[p][half], _mm256_madd_epi16(even, even_weights[half]));
            sums[p][half] = _mm256_add_epi32(sums[p][half], _mm256_madd_epi16(odd, odd_weights[half]));
        }
    }
}

template<int Pixels>
void convolveTile(const ConvolutionSpan& span, const unsigned char* input, std::int32_t* output,
                  __m256i* largest)
{
    const __m256i factor = _mm256_set1_epi32(span.inputBias);
    __m256i sums[Pixels][kHalves];
    for (int half = 0; half < kHalves; ++half) {
        const __m256i bias = _mm256_mullo_epi32(
            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(span.biases) + half), factor);
#pragma GCC unroll 4
        for (int p = 0; p < Pixels; ++p)
            sums[p][half] = bias;
    }

    for (std::int32_t row = 0; row < span.rows; ++row) {
        const unsigned char* run = input + row * span.rowStep;
        const signed char* weights = span.weights + row * span.weightRowStep;
        const unsigned char* isNarrow = span.isNarrow + row * span.weightRowStep / kPieceBytes;
        for (std::int32_t i = 0; i < span.runBytes; i += 8, weights += kPieceBytes) {
            if (*isNarrow++) {
                multiplyNarrow<Pixels>(run + i, span.pixelStep, weights, sums);
            } else {
                multiplyWide<Pixels>(run + i, span.pixelStep, weights, sums);
                multiplyWide<Pixels>(run + i + 4, span.pixelStep, weights + kPieceBytes / 2, sums);
            }
        }
    }

    // The maximum stays in a register: the stores could alias its memory.
    const std::int32_t filters = span.filters;
    const std::ptrdiff_t outputStep = span.outputStep;
    __m256i top = *largest;
#pragma GCC unroll 4
    for (int p = 0; p < Pixels; ++p, output += outputStep) {
        store(output, sums[p][0], filters);
        top = _mm256_max_epi32(top, sums[p][0]);
        if (filters > 8) {
            store(output + 8, sums[p][1], filters - 8);
            top = _mm256_max_epi32(top, sums[p][1]);
        }
    }
    *largest = top;
}

using Tile = void (*)(const ConvolutionSpan&, const unsigned char*, std::int32_t*, __m256i*);
constexpr Tile kTiles[kPixelsAtOnce + 1] = {nullptr, convolveTile<1>, convolveTile<2>, convolveTile<3>,
                                            convolveTile<4>};

std::int32_t convolveLine(const ConvolutionSpan& span)
{
    __m256i largest = _mm256_setzero_si256();
    const unsigned char* input = span.input;
    std::int32_t* output = span.output;
    std::int32_t left = span.pixels;
    for (std::int32_t tiles = (left + kPixelsAtOnce - 1) / kPixelsAtOnce; tiles > 0; --tiles) {
        const std::int32_t pixels = (left + tiles - 1) / tiles;
        kTiles[pixels](span, input, output, &largest);
        input += pixels * span.pixelStep;
        output += pixels * span.outputStep;
        left -= pixels;
    }

    std::int32_t lanes[8];
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(lanes), largest);
    std::int32_t result = 0;
    for (const std::int32_t lane : lanes)
        result = lane > result ? lane : result;
    return result;
}

std::int32_t convolve(const ConvolutionSpan& span)
{
    return convolveLines(span, convolveLine);
}

} // namespace

const KernelFamily kAvx2Kernels = {"avx2", 1, convolve, requantise, poolRow, unfoldRow};

} // namespace facedetectcnn
