#include "multimedia/screensource_linux/screenpart.h"

#include "multimedia/base/pixelscaler.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
}

#include <array>
#include <cstring>

namespace multimedia {

namespace {

constexpr int kPixelBytes = 4;
/// Bytes: as wide as any vector unit reads.
constexpr int kLineAlignment = 64;

/// Where to go in the desktop's picture for one pixel to the right, and one down, of the upright picture.
struct Way
{
    QPoint right;
    QPoint down;
};

/// By the numbers of `spa_meta_videotransform_value`, which say how the desktop has turned the picture:
/// against the clock, by quarters, and then the same of a mirrored one.
constexpr std::array<Way, 8> kWays = {{
    {{1, 0}, {0, 1}},
    {{0, -1}, {1, 0}},
    {{-1, 0}, {0, -1}},
    {{0, 1}, {-1, 0}},
    {{-1, 0}, {0, 1}},
    {{0, 1}, {1, 0}},
    {{1, 0}, {0, -1}},
    {{0, -1}, {-1, 0}},
}};

Way wayOf(uint32_t transform)
{
    return kWays[transform < kWays.size() ? transform : 0];
}

bool isOnItsSide(const Way& way)
{
    return way.right.x() == 0;
}

/// @param from    what of the picture is the screen
/// @param region  of the upright picture
void copyUpright(const DesktopPicture& picture, const QRect& from, const QRect& region, AVFrame& frame)
{
    const Way way = wayOf(picture.transform);
    const QPoint sum = way.right + way.down;
    const QPoint corner(sum.x() < 0 ? from.right() : from.left(), sum.y() < 0 ? from.bottom() : from.top());
    const QPoint first = corner + way.right * region.left() + way.down * region.top();
    const auto bytes = [&picture](const QPoint& step) {
        return std::ptrdiff_t(step.y()) * picture.stride + std::ptrdiff_t(step.x()) * kPixelBytes;
    };
    const uint8_t* line = picture.data + bytes(first);
    const std::ptrdiff_t right = bytes(way.right);
    uint8_t* target = frame.data[0];
    for (int y = 0; y < region.height(); ++y, line += bytes(way.down), target += frame.linesize[0]) {
        if (right == kPixelBytes) {
            std::memcpy(target, line, size_t(region.width()) * kPixelBytes);
            continue;
        }
        const uint8_t* pixel = line;
        for (int x = 0; x < region.width(); ++x, pixel += right)
            std::memcpy(target + x * kPixelBytes, pixel, kPixelBytes);
    }
}

} // namespace

ScreenPart::ScreenPart(const QRect& part, const QSize& screen)
    : part(screen.isEmpty() ? QRect(0, 0, 1, 1) : part)
    , screen(screen.isEmpty() ? QSize(1, 1) : screen)
{}

FrameHandle ScreenPart::take(const DesktopPicture& picture)
{
    const QRect from = picture.crop.isEmpty() ? QRect({0, 0}, picture.size) : picture.crop;
    const QSize upright = isOnItsSide(wayOf(picture.transform)) ? from.size().transposed() : from.size();
    const QRect region = partOf(upright);
    if (region.isEmpty() || !QRect({0, 0}, upright).contains(region))
        return {};
    const bool is_first = frame_size.isEmpty();
    if (is_first) {
        frame_size = region.size();
        frame_format = picture.pixel_format;
        const int bytes = av_image_get_buffer_size(AVPixelFormat(frame_format), frame_size.width(),
                                                   frame_size.height(), kLineAlignment);
        if (bytes > 0)
            pool.reset(av_buffer_pool_init(size_t(bytes) + AV_INPUT_BUFFER_PADDING_SIZE, nullptr));
    }
    const bool fits = region.size() == frame_size && picture.pixel_format == frame_format;
    FrameHandle frame = makeFrame(region.size(), fits ? pool.get() : nullptr);
    if (!frame)
        return {};
    frame->format = picture.pixel_format;
    copyUpright(picture, from, region, *frame);
    return fits ? std::move(frame) : fit(std::move(frame));
}

/// In whole pixels, what is left over cut off.
QRect ScreenPart::partOf(const QSize& upright) const
{
    const auto across = [&](int length) { return int(int64_t(length) * upright.width() / screen.width()); };
    const auto down = [&](int length) { return int(int64_t(length) * upright.height() / screen.height()); };
    return {across(part.left()), down(part.top()), across(part.width()), down(part.height())};
}

/// @param frames  where buffers of this size come from; null for a size of its own
FrameHandle ScreenPart::makeFrame(const QSize& size, AVBufferPool* frames) const
{
    FrameHandle frame = createFrame();
    if (!frame)
        return {};
    frame->width = size.width();
    frame->height = size.height();
    frame->format = frame_format;
    if (!frames)
        return av_frame_get_buffer(frame.get(), 0) < 0 ? FrameHandle() : std::move(frame);
    frame->buf[0] = av_buffer_pool_get(frames);
    if (!frame->buf[0])
        return {};
    av_image_fill_arrays(frame->data, frame->linesize, frame->buf[0]->data, AVPixelFormat(frame->format),
                         frame->width, frame->height, kLineAlignment);
    return frame;
}

/// Scaled into the middle of a frame, in its own shape.
FrameHandle ScreenPart::fit(FrameHandle picture)
{
    FrameHandle frame = makeFrame(frame_size, pool.get());
    if (!frame)
        return {};
    const QSize inner =
        QSize(picture->width, picture->height).scaled(frame_size, Qt::KeepAspectRatio).expandedTo({1, 1});
    const QPoint corner((frame_size.width() - inner.width()) / 2, (frame_size.height() - inner.height()) / 2);
    const SwsContextPtr scaler =
        makeScaler({AVPixelFormat(picture->format), picture->width, picture->height},
                   {AVPixelFormat(frame_format), inner.width(), inner.height()}, SWS_BILINEAR);
    if (!scaler)
        return {};
    for (int y = 0; y < frame_size.height(); ++y)
        std::memset(frame->data[0] + std::ptrdiff_t(y) * frame->linesize[0], 0,
                    size_t(frame_size.width()) * kPixelBytes);
    uint8_t* const target[AV_NUM_DATA_POINTERS] = {frame->data[0] +
                                                   std::ptrdiff_t(corner.y()) * frame->linesize[0] +
                                                   std::ptrdiff_t(corner.x()) * kPixelBytes};
    sws_scale(scaler.get(), picture->data, picture->linesize, 0, picture->height, target, frame->linesize);
    return frame;
}

} // namespace multimedia
