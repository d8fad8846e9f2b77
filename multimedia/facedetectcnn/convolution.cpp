#include "multimedia/facedetectcnn/filters.h"
#include "multimedia/facedetectcnn/kernelchoice.h"
#include "multimedia/facedetectcnn/kernels.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

/// @file
/// Convolution: checks, the scalar reference, and the cutting of an image into spans for the vector kernels.

namespace {

using facedetectcnn::ConvolutionSpan;
using facedetectcnn::KernelFamily;
using facedetectcnn::kernelFamily;
using facedetectcnn::kFiltersPerBlock;
using facedetectcnn::kPieceBytes;
using facedetectcnn::PackedFilters;

constexpr std::int32_t kWindow = 3;

/// The taps of a 3-wide window that fall inside an axis of `size` when the window's centre is at `centre`.
struct Taps
{
    std::int32_t first;
    std::int32_t end;
    bool operator==(const Taps& other) const { return first == other.first && end == other.end; }
};

Taps tapsInside(std::int32_t centre, std::int32_t size)
{
    return {centre < 1 ? 1 : 0, centre + 1 < size ? 3 : 2};
}

std::uint32_t dotProduct(const unsigned char* input, const signed char* weights, std::int32_t count)
{
    std::uint32_t sum = 0;
    for (std::int32_t i = 0; i < count; ++i)
        sum += static_cast<std::uint32_t>(static_cast<std::int32_t>(input[i]) * weights[i]);
    return sum;
}

std::uint32_t scaledBias(const CDataBlob<signed char>& filter, const CDataBlob<unsigned char>& input)
{
    return static_cast<std::uint32_t>(filter.bias) * static_cast<std::uint32_t>(input.bias);
}

/// Gives the largest value written, at least 0, as all convolutions here do.
std::int32_t referenceConvolution1x1(const CDataBlob<unsigned char>& input, const Filters& filters,
                                     CDataBlob<std::int32_t>* output)
{
    std::int32_t largest = 0;
    for (std::int32_t y = 0; y < output->height; ++y) {
        for (std::int32_t x = 0; x < output->width; ++x) {
            std::int32_t* target = output->pixel(x, y);
            for (const auto& filter : filters.filters) {
                const std::uint32_t sum = dotProduct(input.pixel(x, y), filter->data, input.channels);
                *target = static_cast<std::int32_t>(sum + scaledBias(*filter, input));
                largest = std::max(largest, *target++);
            }
        }
    }
    return largest;
}

/// A window's row is contiguous in the input and in the filter, pad bytes included, and those are zero.
std::uint32_t windowSum(const CDataBlob<unsigned char>& input, const CDataBlob<signed char>& filter,
                        std::int32_t centreX, std::int32_t centreY)
{
    const Taps columns = tapsInside(centreX, input.width);
    const Taps rows = tapsInside(centreY, input.height);
    std::uint32_t sum = 0;
    for (std::int32_t row = rows.first; row < rows.end; ++row)
        sum +=
            dotProduct(input.pixel(centreX - 1 + columns.first, centreY - 1 + row),
                       filter.pixel(columns.first, row), (columns.end - columns.first) * input.channelStep);
    return sum;
}

std::int32_t referenceConvolution3x3(const CDataBlob<unsigned char>& input, const Filters& filters,
                                     CDataBlob<std::int32_t>* output)
{
    std::int32_t largest = 0;
    for (std::int32_t y = 0; y < output->height; ++y) {
        for (std::int32_t x = 0; x < output->width; ++x) {
            std::int32_t* target = output->pixel(x, y);
            for (const auto& filter : filters.filters) {
                const std::uint32_t sum = windowSum(input, *filter, x * filters.stride, y * filters.stride);
                *target = static_cast<std::int32_t>(sum + scaledBias(*filter, input));
                largest = std::max(largest, *target++);
            }
        }
    }
    return largest;
}

/// What all spans of a group of blocks have in common.
ConvolutionSpan spanTemplate(const CDataBlob<unsigned char>& input, const PackedFilters& packed,
                             const CDataBlob<std::int32_t>& output, std::int32_t firstBlock,
                             std::int32_t blocksAtOnce)
{
    ConvolutionSpan span = {};
    span.rows = 1;
    span.lines = 1;
    span.runBytes = input.channelStep;
    span.rowStep = static_cast<std::ptrdiff_t>(input.width) * input.channelStep;
    span.weightRowStep = static_cast<std::ptrdiff_t>(kWindow) * input.channelStep * kFiltersPerBlock;
    span.blockStep = packed.weights.channelStep;
    span.weights = packed.weights.pixel(firstBlock, 0);
    span.isNarrow = packed.isNarrow.data() + firstBlock * span.blockStep / kPieceBytes;
    span.biases = packed.biases.data + firstBlock * kFiltersPerBlock;
    span.inputBias = input.bias;
    span.blocks = std::min(blocksAtOnce, packed.blockCount - firstBlock);
    span.filters = std::min(span.blocks * kFiltersPerBlock, output.channels - firstBlock * kFiltersPerBlock);
    return span;
}

std::int32_t packedConvolution1x1(const KernelFamily& family, const CDataBlob<unsigned char>& input,
                                  const PackedFilters& packed, CDataBlob<std::int32_t>* output)
{
    constexpr std::size_t kPixelsAtOnce = 1U << 20U;
    std::int32_t largest = 0;
    for (std::int32_t block = 0; block < packed.blockCount; block += family.blocksAtOnce) {
        ConvolutionSpan span = spanTemplate(input, packed, *output, block, family.blocksAtOnce);
        span.pixelStep = input.channelStep;
        span.outputStep = output->channelStep / static_cast<std::ptrdiff_t>(sizeof(std::int32_t));
        span.input = input.data;
        span.output = output->data + block * kFiltersPerBlock;
        for (std::size_t left = output->pixelCount(); left > 0; left -= span.pixels) {
            span.pixels = static_cast<std::int32_t>(std::min(left, kPixelsAtOnce));
            largest = std::max(largest, family.convolve(span));
            span.input += span.pixels * span.pixelStep;
            span.output += span.pixels * span.outputStep;
        }
    }
    return largest;
}

/// Stretch of an output axis whose windows all have the same taps inside the input.
struct Stretch
{
    std::int32_t begin;
    std::int32_t end;
    Taps taps;
};

/// Cuts an axis into its first position, its last one where that differs, and what lies between.
std::int32_t cutAxis(std::int32_t inputSize, std::int32_t outputSize, std::int32_t stride,
                     std::array<Stretch, 3>* stretches)
{
    std::int32_t count = 0;
    for (std::int32_t begin = 0; begin < outputSize;) {
        const Taps taps = tapsInside(begin * stride, inputSize);
        std::int32_t end = begin + 1;
        if (begin > 0 && tapsInside((outputSize - 1) * stride, inputSize) == taps)
            end = outputSize;
        else if (begin > 0)
            end = std::max(end, outputSize - 1);
        (*stretches)[count++] = {begin, end, taps};
        begin = end;
    }
    return count;
}

/// One rectangle of the output, as one line where it is one pixel wide.
std::int32_t convolveRectangle(const KernelFamily& family, const CDataBlob<unsigned char>& input,
                               std::int32_t stride, const Stretch& columns, const Stretch& rows,
                               ConvolutionSpan span, CDataBlob<std::int32_t>* output,
                               std::int32_t firstFilter)
{
    const std::ptrdiff_t outputPixel =
        output->channelStep / static_cast<std::ptrdiff_t>(sizeof(std::int32_t));
    const std::ptrdiff_t outputRow = outputPixel * output->width;
    const bool isUpright = columns.end - columns.begin == 1;
    span.pixels = isUpright ? rows.end - rows.begin : columns.end - columns.begin;
    span.pixelStep = stride * (isUpright ? span.rowStep : input.channelStep);
    span.outputStep = isUpright ? outputRow : outputPixel;
    span.rows = rows.taps.end - rows.taps.first;
    span.runBytes = (columns.taps.end - columns.taps.first) * input.channelStep;
    const std::ptrdiff_t skipped =
        static_cast<std::ptrdiff_t>(rows.taps.first * kWindow + columns.taps.first) * input.channelStep *
        kFiltersPerBlock;
    span.weights += skipped;
    span.isNarrow += skipped / kPieceBytes;

    span.lines = isUpright ? 1 : rows.end - rows.begin;
    span.inputLineStep = stride * span.rowStep;
    span.outputLineStep = outputRow;
    span.input = input.pixel(columns.begin * stride - 1 + columns.taps.first,
                             rows.begin * stride - 1 + rows.taps.first);
    span.output = output->pixel(columns.begin, rows.begin) + firstFilter;
    return family.convolve(span);
}

std::int32_t packedConvolution3x3(const KernelFamily& family, const CDataBlob<unsigned char>& input,
                                  const PackedFilters& packed, std::int32_t stride,
                                  CDataBlob<std::int32_t>* output)
{
    std::array<Stretch, 3> columns = {};
    std::array<Stretch, 3> rows = {};
    const std::int32_t columnCount = cutAxis(input.width, output->width, stride, &columns);
    const std::int32_t rowCount = cutAxis(input.height, output->height, stride, &rows);

    std::int32_t largest = 0;
    for (std::int32_t block = 0; block < packed.blockCount; block += family.blocksAtOnce) {
        ConvolutionSpan span = spanTemplate(input, packed, *output, block, family.blocksAtOnce);
        for (std::int32_t i = 0; i < rowCount; ++i) {
            for (std::int32_t j = 0; j < columnCount; ++j)
                largest = std::max(largest, convolveRectangle(family, input, stride, columns[j], rows[i],
                                                              span, output, block * kFiltersPerBlock));
        }
    }
    return largest;
}

std::int32_t sums1x1(const KernelFamily& family, const CDataBlob<unsigned char>& input,
                     const Filters& filters, CDataBlob<std::int32_t>* output)
{
    return family.convolve && filters.packed ? packedConvolution1x1(family, input, *filters.packed, output)
                                             : referenceConvolution1x1(input, filters, output);
}

std::int32_t sums3x3(const KernelFamily& family, const CDataBlob<unsigned char>& input,
                     const Filters& filters, CDataBlob<std::int32_t>* output)
{
    return family.convolve && filters.packed
               ? packedConvolution3x3(family, input, *filters.packed, filters.stride, output)
               : referenceConvolution3x3(input, filters, output);
}

bool complain(const char* text)
{
    std::fprintf(stderr, "convolution%s\n", text);
    return false;
}

/// Judges the arguments and finds the output's size.
bool checkConvolution(const CDataBlob<unsigned char>& input, const Filters& filters, std::int32_t* width,
                      std::int32_t* height)
{
    if (!input.data)
        return complain(": The input data is null.");
    if (!facedetectcnn::areFiltersFilled(filters))
        return complain(": There is not filters.");
    if (!facedetectcnn::areFiltersAlike(filters))
        return complain(": The filters must be the same size.");

    const CDataBlob<signed char>& first = *filters.filters.front();
    if (first.channels != input.channels) {
        std::fprintf(stderr,
                     "convolution: The number of channels of filters must be the same with the input data. "
                     "%d vs %d\n",
                     first.channels, input.channels);
        return false;
    }
    *width = input.width;
    *height = input.height;
    if (first.width == 1 && first.height == 1) {
        if (filters.stride != 1)
            return complain(": Onle stride = 1 is supported for 1x1 filters.");
        if (filters.pad != 0)
            return complain(": Onle pad = 0 is supported for 1x1 filters.");
    } else if (first.width != kWindow || first.height != kWindow) {
        return complain(": Unsported filter size.");
    } else if (filters.pad == 1 && filters.stride == 2) {
        *width = (input.width + 1) / 2;
        *height = (input.height + 1) / 2;
    } else if (filters.pad != 1 || filters.stride != 1) {
        std::fprintf(stderr, "convolution: Unspported filter stride=%d or pad=%d\n", filters.stride,
                     filters.pad);
        return complain(": For 3x3 filters, only pad=1 and stride={1,2} are supported.");
    }
    if (*width < 1 || *height < 1) {
        std::fprintf(stderr, "convolution: The size of the output is not correct. (%d, %d).\n", *width,
                     *height);
        return false;
    }
    return true;
}

void setScale(const CDataBlob<unsigned char>& input, const Filters& filters, CDataBlob<std::int32_t>* output)
{
    output->scale = input.scale * filters.scale;
    output->bias = truncateToInt(std::roundf(output->scale));
}

/// `convolution`, which tells the largest value on the way.
bool convolve(const KernelFamily& family, const CDataBlob<unsigned char>& input, const Filters& filters,
              CDataBlob<std::int32_t>* output, std::int32_t* largest)
{
    std::int32_t width = 0;
    std::int32_t height = 0;
    if (!checkConvolution(input, filters, &width, &height) ||
        !output->create(width, height, static_cast<std::int32_t>(filters.filters.size())))
        return false;

    *largest = filters.filters.front()->width == 1 ? sums1x1(family, input, filters, output)
                                                   : sums3x3(family, input, filters, output);
    setScale(input, filters, output);
    return true;
}

void requantise(const KernelFamily& family, const CDataBlob<std::int32_t>& values, float ratio,
                CDataBlob<unsigned char>* output)
{
    if (output->channels == output->channelStep) {
        family.requantise(values.data, output->data, values.pixelCount() * values.channels, ratio);
        return;
    }
    for (std::int32_t y = 0; y < values.height; ++y) {
        for (std::int32_t x = 0; x < values.width; ++x)
            family.requantise(values.pixel(x, y), output->pixel(x, y), values.channels, ratio);
    }
}

} // namespace

bool convolution1x1P0S1(const CDataBlob<unsigned char>& input, const Filters& filters,
                        CDataBlob<std::int32_t>* output)
{
    sums1x1(kernelFamily(), input, filters, output);
    return true;
}

bool convolution3x3P0(const CDataBlob<unsigned char>& input, const Filters& filters,
                      CDataBlob<std::int32_t>* output)
{
    sums3x3(kernelFamily(), input, filters, output);
    return true;
}

bool convolution(const CDataBlob<unsigned char>& input, const Filters& filters,
                 CDataBlob<std::int32_t>* output)
{
    std::int32_t largest = 0;
    return convolve(kernelFamily(), input, filters, output, &largest);
}

bool convolutionPair(const CDataBlob<unsigned char>& input, const Filters& first, const Filters& second,
                     CDataBlob<std::int32_t>* firstOutput, CDataBlob<std::int32_t>* secondOutput)
{
    const KernelFamily& family = kernelFamily();
    std::int32_t width = 0;
    std::int32_t height = 0;
    if (!family.convolve || !first.packedWithNext || !input.data) {
        const bool isFirstDone = convolution(input, first, firstOutput);
        return convolution(input, second, secondOutput) && isFirstDone;
    }
    const auto firstCount = static_cast<std::int32_t>(first.filters.size());
    const auto secondCount = static_cast<std::int32_t>(second.filters.size());
    CDataBlob<std::int32_t> sums;
    if (!checkConvolution(input, first, &width, &height) ||
        !checkConvolution(input, second, &width, &height) ||
        !sums.create(width, height, firstCount + secondCount) ||
        !firstOutput->create(width, height, firstCount) || !secondOutput->create(width, height, secondCount))
        return false;

    packedConvolution3x3(family, input, *first.packedWithNext, first.stride, &sums);
    for (std::int32_t y = 0; y < height; ++y) {
        for (std::int32_t x = 0; x < width; ++x) {
            const std::int32_t* values = sums.pixel(x, y);
            std::copy_n(values, firstCount, firstOutput->pixel(x, y));
            std::copy_n(values + firstCount, secondCount, secondOutput->pixel(x, y));
        }
    }
    setScale(input, first, firstOutput);
    setScale(input, second, secondOutput);
    return true;
}

bool convolution_relu(const CDataBlob<unsigned char>& input, const Filters& filters,
                      CDataBlob<unsigned char>* output)
{
    return convolution_relu(kernelFamily(), input, filters, output);
}

bool convolution_relu(const KernelFamily& family, const CDataBlob<unsigned char>& input,
                      const Filters& filters, CDataBlob<unsigned char>* output)
{
    CDataBlob<std::int32_t> sums;
    std::int32_t largest = 0;
    if (!convolve(family, input, filters, &sums, &largest) ||
        !output->create(sums.width, sums.height, sums.channels))
        return false;

    const float ratio =
        largest == 0 ? std::numeric_limits<float>::infinity() : 255.0F / static_cast<float>(largest);
    if (largest == 0)
        std::memset(output->data, 0, output->pixelCount() * output->channelStep);
    else
        requantise(family, sums, ratio, output);
    output->scale = sums.scale * ratio;
    output->bias = truncateToInt(std::roundf(static_cast<float>(sums.bias) * ratio));
    return true;
}
