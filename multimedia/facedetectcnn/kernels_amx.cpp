#include "multimedia/facedetectcnn/amxspan.h"
#include "multimedia/facedetectcnn/kernels_avx512.h"

/// @file
/// AMX: tiles of 16 by 64 bytes. The register numbers are part of the instructions, hence the assembly: the
/// compiler's own names for them take literal digits only.

namespace facedetectcnn {
namespace {

struct AmxTiles
{
    struct Largest
    {
        void take(const std::int32_t* sums, std::int32_t count, std::int32_t* target)
        {
            const __m512i row = _mm512_load_si512(sums);
            _mm512_mask_storeu_epi32(target,
                                     static_cast<__mmask16>((1U << static_cast<unsigned>(count)) - 1U), row);
            lanes = _mm512_max_epi32(lanes, row);
        }
        std::int32_t value() const { return _mm512_reduce_max_epi32(lanes); }

        __m512i lanes = _mm512_setzero_si512();
    };

    static void configure(const TileShapes& shapes) { __asm__ volatile("ldtilecfg %0" : : "m"(shapes)); }

    static void release() { __asm__ volatile("tilerelease"); }

    template<int Tile>
    static void load(const void* first, std::ptrdiff_t rowStep)
    {
        __asm__ volatile("tileloadd (%0,%1,1), %%tmm%c2" : : "r"(first), "r"(rowStep), "i"(Tile) : "memory");
    }

    template<int Tile>
    static void store(void* first, std::ptrdiff_t rowStep)
    {
        __asm__ volatile("tilestored %%tmm%c2, (%0,%1,1)" : : "r"(first), "r"(rowStep), "i"(Tile) : "memory");
    }

    template<int Sum, int Input, int Weights>
    static void multiply()
    {
        __asm__ volatile("tdpbusd %%tmm%c2, %%tmm%c1, %%tmm%c0" : : "i"(Sum), "i"(Input), "i"(Weights));
    }
};

/// Tiles pay where a line fills most of their rows and the window is long against the sums that go in and
/// out of them once. Elsewhere (borders, narrow maps, the first layers) the vectors are quicker.
bool fillsTiles(const ConvolutionSpan& span)
{
    constexpr std::int32_t kLeastPixels = 12;
    constexpr std::int32_t kLeastBytes = 128;
    return span.pixels >= kLeastPixels && span.rows * span.runBytes >= kLeastBytes;
}

/// Released at once: registers in use make the system save eight kilobytes more whenever the thread is
/// interrupted.
std::int32_t convolve(const ConvolutionSpan& span)
{
    if (!fillsTiles(span))
        return kAvx512VnniKernels.convolve(span);
    const std::int32_t largest = AmxSpan<AmxTiles>(span).convolve();
    AmxTiles::release();
    return largest;
}

} // namespace

const KernelFamily kAmxKernels = {
    "amx", AmxSpan<AmxTiles>::kBlocksAtOnce, convolve, requantise512, poolRow, unfoldRow};

} // namespace facedetectcnn
