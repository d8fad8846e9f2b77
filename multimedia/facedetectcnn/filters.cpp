#include "multimedia/facedetectcnn/filters.h"

#include "multimedia/facedetectcnn/kernelcheck.h"
#include "multimedia/facedetectcnn/kernelchoice.h"
#include "multimedia/facedetectcnn/kernels.h"

#include <algorithm>
#include <cstring>

std::array<Filters, 24> g_pFilters;
std::atomic<bool> param_initialized = false;
std::mutex g_mutex;

namespace {

/// The stem runs as a 1x1 convolution on the unfolded image, so its filters are flattened the same way.
void buildStem(const ConvInfo& row, Filters* layer)
{
    layer->pad = 0;
    layer->stride = 1;
    layer->scale = row.scale;
    const std::int32_t weights = row.kernelSize * row.kernelSize * row.channels;
    for (std::int32_t i = 0; i < row.filterCount; ++i) {
        CDataBlob<signed char> window;
        if (window.create(row.kernelSize, row.kernelSize, row.channels))
            window.setInt8FilterData(row.weights + i * weights, row.biases[i], row.kernelSize, row.kernelSize,
                                     row.channels);
        auto flat = std::make_unique<CDataBlob<signed char>>();
        blob2vector(window, flat.get());
        layer->filters.push_back(std::move(flat));
    }
}

void buildLayer(const ConvInfo& row, Filters* layer)
{
    layer->pad = row.pad;
    layer->stride = row.stride;
    layer->scale = row.scale;
    const std::int32_t weights = row.kernelSize * row.kernelSize * row.channels;
    for (std::int32_t i = 0; i < row.filterCount; ++i) {
        auto filter = std::make_unique<CDataBlob<signed char>>();
        if (filter->create(row.kernelSize, row.kernelSize, row.channels))
            filter->setInt8FilterData(row.weights + i * weights, row.biases[i], row.kernelSize,
                                      row.kernelSize, row.channels);
        layer->filters.push_back(std::move(filter));
    }
}

/// Lays one filter into its lane of its block: taps and channels follow each other without a gap, pads
/// included.
void packFilter(const CDataBlob<signed char>& filter, signed char* lane)
{
    using facedetectcnn::kChannelsPerGroup;
    using facedetectcnn::kFiltersPerBlock;
    const std::size_t bytes = filter.pixelCount() * static_cast<std::size_t>(filter.channelStep);
    for (std::size_t i = 0; i < bytes; i += kChannelsPerGroup, lane += kFiltersPerBlock * kChannelsPerGroup)
        std::memcpy(lane, filter.data + i, kChannelsPerGroup);
}

/// Whether 16 bits hold the sum of these four weights' products with any bytes.
bool isNarrow(const std::array<signed char, 4>& weights)
{
    constexpr int kLimit = 32767 / 255;
    int positive = 0;
    int negative = 0;
    for (const signed char weight : weights)
        (weight > 0 ? positive : negative) += weight;
    return positive <= kLimit && -negative <= kLimit;
}

/// The same for all pairs of weights that meet in a piece: first with first, second with second ones of the
/// two groups.
bool isNarrowPiece(const signed char* piece)
{
    constexpr int kGroup = facedetectcnn::kPieceBytes / 2;
    for (int i = 0; i < kGroup; i += 2) {
        if (!isNarrow({piece[i], piece[i + 1], piece[kGroup + i], piece[kGroup + i + 1]}))
            return false;
    }
    return true;
}

using facedetectcnn::PackedFilters;

/// The filters of these layers one behind the other; null when they are none, empty or not alike, or without
/// memory.
std::unique_ptr<PackedFilters> packed(std::initializer_list<const Filters*> layers)
{
    using namespace facedetectcnn;
    std::vector<const CDataBlob<signed char>*> filters;
    for (const Filters* layer : layers) {
        if (!areFiltersFilled(*layer) || !areFiltersAlike(*layer))
            return nullptr;
        for (const auto& filter : layer->filters)
            filters.push_back(filter.get());
    }
    const auto count = static_cast<std::int32_t>(filters.size());
    const CDataBlob<signed char>& first = *filters.front();

    auto packed = std::make_unique<PackedFilters>();
    packed->blockCount = (count + kFiltersPerBlock - 1) / kFiltersPerBlock;
    packed->blockBytes = first.width * first.height * first.channelStep * kFiltersPerBlock;
    if (!packed->weights.create(packed->blockCount, 1, packed->blockBytes) ||
        !packed->biases.create(1, 1, packed->blockCount * kFiltersPerBlock))
        return nullptr;

    signed char* const weights = packed->weights.data;
    const std::int32_t bytes = packed->blockCount * packed->blockBytes;
    std::memset(weights, 0, bytes);
    std::memset(packed->biases.data, 0, sizeof(std::int32_t) * packed->biases.channels);
    for (std::int32_t i = 0; i < count; ++i) {
        packed->biases.data[i] = filters[i]->bias;
        packFilter(*filters[i], packed->weights.pixel(i / kFiltersPerBlock, 0) +
                                    (i % kFiltersPerBlock) * kChannelsPerGroup);
    }
    for (std::int32_t i = 0; i < bytes; i += kPieceBytes)
        packed->isNarrow.push_back(isNarrowPiece(weights + i) ? 1 : 0);
    return packed;
}

} // namespace

namespace facedetectcnn {

void buildBank(const std::array<ConvInfo, 24>& table, std::array<Filters, 24>* bank)
{
    for (std::size_t i = 0; i < table.size(); ++i) {
        Filters& layer = (*bank)[i];
        layer = Filters();
        if (i == 0)
            buildStem(table[i], &layer);
        else
            buildLayer(table[i], &layer);
        packFilters(&layer);
    }
    for (std::size_t i = kFirstHead; i < table.size(); i += 2)
        (*bank)[i].packedWithNext = packed({&(*bank)[i], &(*bank)[i + 1]});
}

bool areFiltersFilled(const Filters& filters)
{
    return !filters.filters.empty() &&
           std::all_of(filters.filters.begin(), filters.filters.end(),
                       [](const auto& filter) { return filter->data != nullptr; });
}

bool areFiltersAlike(const Filters& filters)
{
    const CDataBlob<signed char>& first = *filters.filters.front();
    return std::all_of(filters.filters.begin(), filters.filters.end(), [&first](const auto& filter) {
        return filter->width == first.width && filter->height == first.height &&
               filter->channels == first.channels;
    });
}

void packFilters(Filters* filters)
{
    filters->packed = packed({filters});
}

} // namespace facedetectcnn

void init_parameters()
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (param_initialized)
        return;
    using namespace facedetectcnn;
    constexpr std::size_t kCheckedLayer = 4; // 3x3, of 32 channels and 64 filters: all loops of a kernel
    buildBank(param_pConvInfo, &g_pFilters);
    settleKernelFamily(firstSoundFamily(kernelFamilies(), g_pFilters[kCheckedLayer]));
    param_initialized = true;
}
