#include "multimedia/facedetectcnn/kernels_avx512.h"

/// @file
/// AVX-512 with VNNI: one instruction multiplies four bytes of input by four weights of 16 filters and adds
/// them up. A tile of pixels by blocks stays in registers while the input goes by.

#if defined(__GNUC__) && !defined(__clang__)
// Partial redundancy elimination gives each sum a second register in the innermost loop, and they run out:
// half the speed.
#    pragma GCC optimize("no-tree-pre")
#endif

namespace facedetectcnn {
namespace {

constexpr int kPixelsAtOnce = 8;
constexpr int kBlocksAtOnce = 4;
constexpr int kFilters = 16;
constexpr int kGroupBytes = 64;

/// 32 registers hold the sums, the weights of all blocks and one piece of input.
constexpr int pixelsAtOnce(int blocks)
{
    return blocks == kBlocksAtOnce ? 6 : kPixelsAtOnce;
}

std::int32_t load32(const unsigned char* bytes)
{
    std::int32_t value = 0;
    __builtin_memcpy(&value, bytes, sizeof(value));
    return value;
}

template<int Blocks, int Pixels>
void convolveTile(const ConvolutionSpan& span, const unsigned char* input, std::int32_t* output,
                  __m512i* largest)
{
    const __m512i factor = _mm512_set1_epi32(span.inputBias);
    __m512i sums[Pixels][Blocks];
#pragma GCC unroll 4
    for (int b = 0; b < Blocks; ++b) {
        const __m512i bias = _mm512_mullo_epi32(_mm512_loadu_si512(span.biases + b * kFilters), factor);
#pragma GCC unroll 8
        for (int p = 0; p < Pixels; ++p)
            sums[p][b] = bias;
    }

    for (std::int32_t row = 0; row < span.rows; ++row) {
        const unsigned char* run = input + row * span.rowStep;
        const signed char* weights = span.weights + row * span.weightRowStep;
        for (std::int32_t i = 0; i < span.runBytes; i += 4, weights += kGroupBytes) {
            __m512i group[Blocks];
#pragma GCC unroll 4
            for (int b = 0; b < Blocks; ++b)
                group[b] = _mm512_loadu_si512(weights + b * span.blockStep);
#pragma GCC unroll 8
            for (int p = 0; p < Pixels; ++p) {
                const __m512i bytes = _mm512_set1_epi32(load32(run + p * span.pixelStep + i));
#pragma GCC unroll 4
                for (int b = 0; b < Blocks; ++b)
                    sums[p][b] = _mm512_dpbusd_epi32(sums[p][b], bytes, group[b]);
            }
        }
    }

    // All blocks but the last are full. The maximum stays in a register: the stores could alias its memory.
    const int lanes = span.filters - (Blocks - 1) * kFilters;
    const auto mask = static_cast<__mmask16>((1U << static_cast<unsigned>(lanes)) - 1U);
    const std::ptrdiff_t outputStep = span.outputStep;
    __m512i top = *largest;
#pragma GCC unroll 8
    for (int p = 0; p < Pixels; ++p, output += outputStep) {
#pragma GCC unroll 4
        for (int b = 0; b < Blocks; ++b)
            top = _mm512_max_epi32(top, sums[p][b]);
#pragma GCC unroll 3
        for (int b = 0; b < Blocks - 1; ++b)
            _mm512_storeu_si512(output + b * kFilters, sums[p][b]);
        if (lanes == kFilters)
            _mm512_storeu_si512(output + (Blocks - 1) * kFilters, sums[p][Blocks - 1]);
        else
            _mm512_mask_storeu_epi32(output + (Blocks - 1) * kFilters, mask, sums[p][Blocks - 1]);
    }
    *largest = top;
}

/// The same for up to 8 filters, which half a vector holds: two halves go through at a time.
template<int Pixels>
void convolveNarrowTile(const ConvolutionSpan& span, const unsigned char* input, std::int32_t* output,
                        __m512i* largest)
{
    const __m256i bias = _mm256_mullo_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(span.biases)),
                                            _mm256_set1_epi32(span.inputBias));
    __m256i sums[Pixels];
#pragma GCC unroll 8
    for (int p = 0; p < Pixels; ++p)
        sums[p] = bias;

    for (std::int32_t row = 0; row < span.rows; ++row) {
        const unsigned char* run = input + row * span.rowStep;
        const signed char* weights = span.weights + row * span.weightRowStep;
        for (std::int32_t i = 0; i < span.runBytes; i += 4, weights += kGroupBytes) {
            const __m256i group = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(weights));
#pragma GCC unroll 8
            for (int p = 0; p < Pixels; ++p)
                sums[p] = _mm256_dpbusd_epi32(sums[p],
                                              _mm256_set1_epi32(load32(run + p * span.pixelStep + i)), group);
        }
    }

    const auto mask = static_cast<__mmask8>((1U << static_cast<unsigned>(span.filters)) - 1U);
    const std::ptrdiff_t outputStep = span.outputStep;
    __m256i top = _mm256_setzero_si256();
#pragma GCC unroll 8
    for (int p = 0; p < Pixels; ++p, output += outputStep) {
        top = _mm256_max_epi32(top, sums[p]);
        _mm256_mask_storeu_epi32(output, mask, sums[p]);
    }
    *largest = _mm512_max_epi32(*largest, _mm512_zextsi256_si512(top));
}

using Tile = void (*)(const ConvolutionSpan&, const unsigned char*, std::int32_t*, __m512i*);
constexpr Tile kTiles[kBlocksAtOnce][kPixelsAtOnce + 1] = {
    {nullptr, convolveTile<1, 1>, convolveTile<1, 2>, convolveTile<1, 3>, convolveTile<1, 4>,
     convolveTile<1, 5>, convolveTile<1, 6>, convolveTile<1, 7>, convolveTile<1, 8>},
    {nullptr, convolveTile<2, 1>, convolveTile<2, 2>, convolveTile<2, 3>, convolveTile<2, 4>,
     convolveTile<2, 5>, convolveTile<2, 6>, convolveTile<2, 7>, convolveTile<2, 8>},
    {nullptr, convolveTile<3, 1>, convolveTile<3, 2>, convolveTile<3, 3>, convolveTile<3, 4>,
     convolveTile<3, 5>, convolveTile<3, 6>, convolveTile<3, 7>, convolveTile<3, 8>},
    {nullptr, convolveTile<4, 1>, convolveTile<4, 2>, convolveTile<4, 3>, convolveTile<4, 4>,
     convolveTile<4, 5>, convolveTile<4, 6>, nullptr, nullptr},
};

constexpr Tile kNarrowTiles[kPixelsAtOnce + 1] = {
    nullptr,
    convolveNarrowTile<1>,
    convolveNarrowTile<2>,
    convolveNarrowTile<3>,
    convolveNarrowTile<4>,
    convolveNarrowTile<5>,
    convolveNarrowTile<6>,
    convolveNarrowTile<7>,
    convolveNarrowTile<8>,
};

std::int32_t convolveLine(const ConvolutionSpan& span)
{
    __m512i largest = _mm512_setzero_si512();
    const std::int32_t atOnce = pixelsAtOnce(span.blocks);
    const Tile* tilesOfSizes = span.filters <= kFilters / 2 ? kNarrowTiles : kTiles[span.blocks - 1];
    const unsigned char* input = span.input;
    std::int32_t* output = span.output;
    std::int32_t left = span.pixels;
    for (std::int32_t tiles = (left + atOnce - 1) / atOnce; tiles > 0; --tiles) {
        const std::int32_t pixels = (left + tiles - 1) / tiles;
        tilesOfSizes[pixels](span, input, output, &largest);
        input += pixels * span.pixelStep;
        output += pixels * span.outputStep;
        left -= pixels;
    }

    std::int32_t lanes[kFilters];
    _mm512_storeu_si512(lanes, largest);
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

const KernelFamily kAvx512VnniKernels = {"avx512vnni",  kBlocksAtOnce, convolve,
                                         requantise512, poolRow,       unfoldRow};

} // namespace facedetectcnn
