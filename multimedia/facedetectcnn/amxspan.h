#pragma once

#include "multimedia/facedetectcnn/kernelfamily.h"

/// @file
/// Convolution by tiles of 16 pixels by 16 filters. The tile operations are a parameter, so that the loops
/// can be run on a processor without them. Everything has internal linkage, as kernelfamily.h asks.

namespace facedetectcnn {
namespace {

/// The operand of the instruction that shapes the eight tile registers.
struct alignas(64) TileShapes
{
    unsigned char palette = 1;
    unsigned char startRow = 0;
    unsigned char reserved[14] = {};
    std::uint16_t rowBytes[16] = {}; ///< of each tile
    unsigned char rows[16] = {};
};
static_assert(sizeof(TileShapes) == 64);

/// Registers 0 to 3 hold sums of two sets of pixels by two blocks, 4 and 5 the pixels' input, 6 and 7
/// weights.
///
/// Tiles offers, with register numbers as template arguments: `configure(TileShapes)`, `load<Tile>(pointer,
/// rowStep)`, `store<Tile>(pointer, rowStep)`, and `multiply<Sum, Input, Weights>()`, which adds the products
/// of unsigned input and signed weights, four bytes at a time; and a type `Largest`, whose `take(sums, count,
/// target)` writes the first `count` of 16 sums, the others being zero, and whose `value()` gives the largest
/// of all taken, at least 0.
template<class Tiles>
class AmxSpan
{
public:
    static constexpr std::int32_t kBlocksAtOnce = 4;

    explicit AmxSpan(const ConvolutionSpan& convolutionSpan)
        : span(convolutionSpan)
        , side(convolutionSpan.pixels < kSide ? convolutionSpan.pixels : kSide)
        , slice(sliceBytes(convolutionSpan.runBytes))
    {
        for (int i = 0; i < span.blocks * kSide; ++i)
            biases[i] = static_cast<std::int32_t>(static_cast<std::uint32_t>(span.biases[i]) *
                                                  static_cast<std::uint32_t>(span.inputBias));
    }

    /// The largest sum, at least 0. Leaves the tile registers configured: all lines do with one shape.
    std::int32_t convolve()
    {
        shape();
        for (firstBlock = 0; firstBlock < span.blocks; firstBlock += 2) {
            const bool isPair = firstBlock + 1 < span.blocks;
            if (isPair && span.pixels > kSide)
                convolveLines<2, 2>();
            else if (isPair)
                convolveLines<1, 2>();
            else if (span.pixels > kSide)
                convolveLines<2, 1>();
            else
                convolveLines<1, 1>();
        }
        return largest.value();
    }

private:
    static constexpr int kSide = 16;       ///< rows of a tile, filters of a block
    static constexpr int kTileBytes = 64;  ///< of a row
    static constexpr int kGroupBytes = 64; ///< weights of 16 filters for four bytes of input

    /// A tile's row takes up to 64 bytes of a run; all slices of a run are equal, so that one shape does.
    static std::int32_t sliceBytes(std::int32_t runBytes)
    {
        std::int32_t bytes = kTileBytes;
        while (runBytes % bytes != 0)
            bytes -= 4;
        return bytes;
    }

    void shape() const
    {
        TileShapes shapes;
        for (int tile = 0; tile < 8; ++tile) {
            shapes.rows[tile] = static_cast<unsigned char>(tile < 6 ? side : slice / 4);
            shapes.rowBytes[tile] = static_cast<std::uint16_t>(tile == 4 || tile == 5 ? slice : kTileBytes);
        }
        Tiles::configure(shapes);
    }

    template<int Sets, int Blocks>
    void convolveLines()
    {
        for (std::int32_t line = 0; line < span.lines; ++line)
            convolveLine<Sets, Blocks>(span.input + line * span.inputLineStep,
                                       span.output + line * span.outputLineStep + firstBlock * kSide);
    }

    /// Where a line is no multiple of the tiles, the last ones overlap those before: the same sums are
    /// written twice, which costs less than another shape.
    template<int Sets, int Blocks>
    void convolveLine(const unsigned char* input, std::int32_t* output)
    {
        const std::int32_t lastSet = span.pixels - side;
        for (std::int32_t pixel = 0; pixel < span.pixels; pixel += Sets * kSide) {
            const std::int32_t last = span.pixels - Sets * side;
            const std::int32_t first = pixel < last ? pixel : last > 0 ? last : 0;
            const std::int32_t second = first + side < lastSet ? first + side : lastSet;
            convolveTiles<Sets, Blocks>(input + first * span.pixelStep, input + second * span.pixelStep,
                                        output + first * span.outputStep, output + second * span.outputStep);
        }
    }

    template<int Sets, int Blocks>
    void convolveTiles(const unsigned char* firstInput, const unsigned char* secondInput,
                       std::int32_t* firstOutput, std::int32_t* secondOutput)
    {
        const std::int32_t* const start = biases + firstBlock * kSide;
        Tiles::template load<0>(start, 0);
        if constexpr (Blocks == 2)
            Tiles::template load<1>(start + kSide, 0);
        if constexpr (Sets == 2)
            Tiles::template load<2>(start, 0);
        if constexpr (Sets == 2 && Blocks == 2)
            Tiles::template load<3>(start + kSide, 0);

        for (std::int32_t row = 0; row < span.rows; ++row) {
            const std::ptrdiff_t run = row * span.rowStep;
            const signed char* weights =
                span.weights + firstBlock * span.blockStep + row * span.weightRowStep;
            for (std::int32_t i = 0; i < span.runBytes; i += slice, weights += slice / 4 * kGroupBytes)
                multiplySlice<Sets, Blocks>(firstInput + run + i, secondInput + run + i, weights);
        }

        take<0>(firstOutput, 0);
        if constexpr (Blocks == 2)
            take<1>(firstOutput, 1);
        if constexpr (Sets == 2)
            take<2>(secondOutput, 0);
        if constexpr (Sets == 2 && Blocks == 2)
            take<3>(secondOutput, 1);
    }

    template<int Sets, int Blocks>
    void multiplySlice(const unsigned char* firstInput, const unsigned char* secondInput,
                       const signed char* weights)
    {
        Tiles::template load<6>(weights, kGroupBytes);
        Tiles::template load<4>(firstInput, span.pixelStep);
        Tiles::template multiply<0, 4, 6>();
        if constexpr (Blocks == 2) {
            Tiles::template load<7>(weights + span.blockStep, kGroupBytes);
            Tiles::template multiply<1, 4, 7>();
        }
        if constexpr (Sets == 2) {
            Tiles::template load<5>(secondInput, span.pixelStep);
            Tiles::template multiply<2, 5, 6>();
        }
        if constexpr (Sets == 2 && Blocks == 2)
            Tiles::template multiply<3, 5, 7>();
    }

    /// Writes the sums of one tile, but for the lanes beyond the last filter.
    template<int Tile>
    void take(std::int32_t* output, std::int32_t block)
    {
        alignas(64) std::int32_t sums[kSide][kSide];
        Tiles::template store<Tile>(sums, sizeof(sums[0]));
        const std::int32_t filtersLeft = span.filters - (firstBlock + block) * kSide;
        const std::int32_t filters = filtersLeft < kSide ? filtersLeft : kSide;
        typename Tiles::Largest top = largest; // in a register: the stores could alias its memory
        for (std::int32_t p = 0; p < side; ++p)
            top.take(sums[p], filters, output + p * span.outputStep + block * kSide);
        largest = top;
    }

    const ConvolutionSpan& span;
    const std::int32_t side; ///< pixels of a set
    const std::int32_t slice;
    std::int32_t firstBlock = 0; ///< of the pair that is under way
    typename Tiles::Largest largest;
    alignas(64) std::int32_t biases[kBlocksAtOnce * kSide] = {};
};

} // namespace
} // namespace facedetectcnn
