#include "multimedia/facedetectcnn/amxspan.h"
#include "multimedia/facedetectcnn/kernels_x86.h"

/// @file
/// AMX: tiles of 16 by 64 bytes. The register numbers are part of the instructions, hence the assembly: the
/// compiler's own names for them take literal digits only.

namespace facedetectcnn {
namespace {

struct AmxTiles
{
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

/// Released at once: registers in use make the system save eight kilobytes more whenever the thread is
/// interrupted.
std::int32_t convolve(const ConvolutionSpan& span)
{
    const std::int32_t largest = AmxSpan<AmxTiles>(span).convolve();
    AmxTiles::release();
    return largest;
}

} // namespace

const KernelFamily kAmxKernels = {"amx",    AmxSpan<AmxTiles>::kBlocksAtOnce, convolve, requantise, poolRow,
                                  unfoldRow};

} // namespace facedetectcnn
