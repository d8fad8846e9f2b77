#pragma once

#include "multimedia/facedetectcnn/datablob.h"

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

/// @file
/// The model: the constant table, and the bank that the network works with.

namespace facedetectcnn {

/// A layer's weights in the order in which the vector kernels read them, and its biases.
///
/// Filters go by blocks of 16, filled up with zero filters. A block holds, for each tap (row, then column),
/// for each group of four channels, the four weights of its first filter, then those of its second, and so
/// on: 64 bytes a group, `channelStep` / 4 groups a tap.
struct PackedFilters
{
    CDataBlob<signed char> weights;
    CDataBlob<std::int32_t> biases; ///< one a filter, blocks filled up with 0
    std::int32_t blockCount = 0;
    std::int32_t blockBytes = 0; ///< of one block's weights
    /// One for each `kPieceBytes` of weights: whether no input makes the sums of a filter's even pairs, or of
    /// its odd ones, leave 16 bits.
    std::vector<unsigned char> isNarrow;
};

inline constexpr std::int32_t kFiltersPerBlock = 16;
inline constexpr std::int32_t kChannelsPerGroup = 4;
inline constexpr std::int32_t kPieceBytes = 128; ///< two groups of channels

} // namespace facedetectcnn

/// One layer's weights.
struct Filters
{
    std::vector<std::unique_ptr<CDataBlob<signed char>>> filters; ///< one an output channel
    std::int32_t pad = 0;
    std::int32_t stride = 0;
    float scale = 0.0F; ///< stored weight = real weight * scale
    /// The same weights for the vector kernels; without it the reference kernel runs.
    std::unique_ptr<facedetectcnn::PackedFilters> packed;
    /// These filters and behind them the next layer's, where that is the other head of the same branch.
    std::unique_ptr<facedetectcnn::PackedFilters> packedWithNext;
};

/// One row of the model table. The arrays are constant data of the library.
struct ConvInfo
{
    std::int32_t pad;
    std::int32_t stride;
    std::int32_t kernelSize;
    std::int32_t channels;    ///< of the input
    std::int32_t filterCount; ///< channels of the output
    float scale;
    const signed char* weights; ///< planar: filter, channel, row, column
    const std::int32_t* biases; ///< one a filter
};

extern const std::array<ConvInfo, 24> param_pConvInfo;

/// The bank: empty before the first detection, constant from then on. Written by `init_parameters` under
/// `g_mutex`; read without it once `param_initialized` is true.
extern std::array<Filters, 24> g_pFilters;
/// Goes from false to true once, when the bank stands.
extern std::atomic<bool> param_initialized;
/// Makes one of several first detections build the bank. Detections themselves take no lock.
extern std::mutex g_mutex;

/// Builds `g_pFilters` from `param_pConvInfo` and settles on the best kernels that calculate rightly, once.
/// Any thread.
void init_parameters();

namespace facedetectcnn {

inline constexpr std::size_t kFirstHead = 16; ///< from here on two heads a branch: location, confidence

/// Makes the bank of a table, in place of what it held. The stem, row 0, is laid out for the unfolded image.
void buildBank(const std::array<ConvInfo, 24>& table, std::array<Filters, 24>* bank);

/// Whether there are filters, and all of them hold data.
bool areFiltersFilled(const Filters& filters);

/// Whether all filters have the first one's size.
bool areFiltersAlike(const Filters& filters);

/// Makes `filters->packed` anew from `filters->filters`; nothing when these are none, empty or not alike.
void packFilters(Filters* filters);

} // namespace facedetectcnn
