#include "multimedia/base/rotation.h"

#include "multimedia/base/ffmpegversion.h"

extern "C" {
#include <libavutil/display.h>
}

#include <cmath>
#include <cstdlib>

namespace multimedia {

namespace {
constexpr auto kTag = "rotate";
constexpr size_t kMatrixBytes = 9 * sizeof(int32_t);

const int32_t* displayMatrix(const AVStream& stream)
{
    const AVPacketSideData* entry = sideData(stream, AV_PKT_DATA_DISPLAYMATRIX);
    return entry && entry->size >= kMatrixBytes ? reinterpret_cast<const int32_t*>(entry->data) : nullptr;
}
} // namespace

std::optional<double> displayTurn(const AVStream& stream)
{
    const int32_t* matrix = displayMatrix(stream);
    const double counterclockwise = matrix ? av_display_rotation_get(matrix) : NAN;
    return std::isnan(counterclockwise) ? std::nullopt : std::optional(counterclockwise);
}

std::optional<int> rotateTag(const AVStream& stream)
{
    if (const AVDictionaryEntry* tag = av_dict_get(stream.metadata, kTag, nullptr, 0))
        return int(std::strtol(tag->value, nullptr, 10));
    const auto counterclockwise = displayTurn(stream);
    if (!counterclockwise)
        return std::nullopt;
    return int(std::lround(360 - *counterclockwise) % 360);
}

bool setRotation(AVStream& stream, int clockwise_degrees)
{
    if (av_dict_set_int(&stream.metadata, kTag, clockwise_degrees, 0) < 0)
        return false;
    if (displayMatrix(stream))
        return true;
    uint8_t* data = newSideData(stream, AV_PKT_DATA_DISPLAYMATRIX, kMatrixBytes);
    if (!data)
        return false;
    av_display_rotation_set(reinterpret_cast<int32_t*>(data), clockwise_degrees);
    return true;
}

} // namespace multimedia
