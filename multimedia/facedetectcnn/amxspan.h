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
/// Tiles offers, with register numbers as template arguments: `configure(TileShapes)`, `release()`,
/// `load<Tile>(pointer, rowStep)`, `store<Tile>(pointer, rowStep)`, and `multiply<Sum, Input, Weights>()`,
/// which adds the products of unsigned input and signed weights, four bytes at a time.
template<class Tiles>
class AmxSpan
{
public:
    static constexpr std::int32_t kBlocksAtOnce = 2;

    explicit AmxSpan(const ConvolutionSpan& convolutionSpan)
        : span(convolutionSpan)
        , slice(sliceBytes(convolutionSpan.runBytes))
    {
        for (int i = 0; i < span.blocks * kSide; ++i)
            biases[i] = static_cast<std::int32_t>(static_cast<std::uint32_t>(span.biases[i]) *
                                                  static_cast<std::uint32_t>(span.inputBias));
    }

    /// The largest sum, at least 0. Leaves the tile registers configured.
    std::int32_t convolve()
    {
        const unsigned char* input = span.input;
        std::int32_t* output = span.output;
        for (std::int32_t left = span.pixels; left > 0;) {
            const std::int32_t pixels = left < 2 * kSide ? left : 2 * kSide;
            shape(pixels);
            if (span.blocks == 2 && pixels > kSide)
                convolveTiles<2, 2>(input, output, pixels);
            else if (span.blocks == 2)
                convolveTiles<1, 2>(input, output, pixels);
            else if (pixels > kSide)
                convolveTiles<2, 1>(input, output, pixels);
            else
                convolveTiles<1, 1>(input, output, pixels);
            input += pixels * span.pixelStep;
            output += pixels * span.outputStep;
            left -= pixels;
        }
        return largest;
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

    void shape(std::int32_t pixels)
    {
        if (pixels == shapedPixels)
            return;
        shapedPixels = pixels;
        TileShapes shapes;
        const std::int32_t upper = pixels < kSide ? pixels : kSide;
        const std::int32_t lower = pixels - upper;
        const std::int32_t rows[8] = {upper, upper, lower, lower, upper, lower, slice / 4, slice / 4};
        for (int tile = 0; tile < 8; ++tile) {
            const bool isInput = tile == 4 || tile == 5;
            shapes.rows[tile] = static_cast<unsigned char>(rows[tile]);
            if (rows[tile] > 0)
                shapes.rowBytes[tile] = static_cast<std::uint16_t>(isInput ? slice : kTileBytes);
        }
        Tiles::configure(shapes);
    }

    template<int Sets, int Blocks>
    void convolveTiles(const unsigned char* input, std::int32_t* output, std::int32_t pixels)
    {
        Tiles::template load<0>(biases, 0);
        if constexpr (Blocks == 2)
            Tiles::template load<1>(biases + kSide, 0);
        if constexpr (Sets == 2)
            Tiles::template load<2>(biases, 0);
        if constexpr (Sets == 2 && Blocks == 2)
            Tiles::template load<3>(biases + kSide, 0);

        for (std::int32_t row = 0; row < span.rows; ++row) {
            const unsigned char* run = input + row * span.rowStep;
            const signed char* weights = span.weights + row * span.weightRowStep;
            for (std::int32_t i = 0; i < span.runBytes; i += slice, weights += slice / 4 * kGroupBytes)
                multiplySlice<Sets, Blocks>(run + i, weights);
        }

        const std::int32_t upper = Sets == 2 ? kSide : pixels;
        take<0>(output, upper, 0);
        if constexpr (Blocks == 2)
            take<1>(output, upper, 1);
        if constexpr (Sets == 2)
            take<2>(output + kSide * span.outputStep, pixels - kSide, 0);
        if constexpr (Sets == 2 && Blocks == 2)
            take<3>(output + kSide * span.outputStep, pixels - kSide, 1);
    }

    template<int Sets, int Blocks>
    void multiplySlice(const unsigned char* input, const signed char* weights)
    {
        Tiles::template load<6>(weights, kGroupBytes);
        Tiles::template load<4>(input, span.pixelStep);
        Tiles::template multiply<0, 4, 6>();
        if constexpr (Blocks == 2) {
            Tiles::template load<7>(weights + span.blockStep, kGroupBytes);
            Tiles::template multiply<1, 4, 7>();
        }
        if constexpr (Sets == 2) {
            Tiles::template load<5>(input + kSide * span.pixelStep, span.pixelStep);
            Tiles::template multiply<2, 5, 6>();
        }
        if constexpr (Sets == 2 && Blocks == 2)
            Tiles::template multiply<3, 5, 7>();
    }

    /// Writes the sums of one tile, but for the lanes beyond the last filter.
    template<int Tile>
    void take(std::int32_t* output, std::int32_t pixels, std::int32_t block)
    {
        alignas(64) std::int32_t sums[kSide][kSide] = {};
        Tiles::template store<Tile>(sums, sizeof(sums[0]));
        const std::int32_t filtersLeft = span.filters - block * kSide;
        const std::int32_t filters = filtersLeft < kSide ? filtersLeft : kSide;
        for (std::int32_t p = 0; p < pixels; ++p) {
            std::int32_t* target = output + p * span.outputStep + block * kSide;
            for (std::int32_t f = 0; f < filters; ++f) {
                target[f] = sums[p][f];
                largest = sums[p][f] > largest ? sums[p][f] : largest;
            }
        }
    }

    const ConvolutionSpan& span;
    const std::int32_t slice;
    std::int32_t shapedPixels = 0;
    std::int32_t largest = 0;
    alignas(64) std::int32_t biases[kBlocksAtOnce * kSide] = {};
};

} // namespace
} // namespace facedetectcnn
