#pragma once

#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/mediahandle.h"

#include <QtCore/QRect>

#include <cstdint>

namespace multimedia {

/// A picture as the desktop gives it; the pixels belong to the desktop.
struct DesktopPicture
{
    const uint8_t* data = nullptr; ///< the first line
    int stride = 0;                ///< bytes from line to line
    QSize size;                    ///< of the whole picture
    int pixel_format = -1;         ///< an `AVPixelFormat` of four bytes a pixel
    QRect crop;                    ///< what of it is the screen; all of it when empty
    uint32_t transform = 0;        ///< how it lies to the screen: a `spa_meta_videotransform_value`
};

/// Takes the same part of the screen out of each picture, upright and as large as in the first one.
///
/// The part is a rectangle of the screen as it was at the beginning, whatever pixels that has: if the screen
/// is turned or gets another mode, its picture is scaled into the size of the first, with black beside what
/// has another shape. One thread.
class ScreenPart
{
public:
    /// @param part    logical pixels, relative to the screen
    /// @param screen  logical size of the screen; all of the screen is taken where it is not known
    ScreenPart(const QRect& part, const QSize& screen);

    /// Null when the part is not on the screen, or memory is short.
    FrameHandle take(const DesktopPicture& picture);
    /// Of the frames; empty before the first.
    QSize size() const { return frame_size; }

private:
    QRect partOf(const QSize& upright) const;
    FrameHandle makeFrame(const QSize& size, AVBufferPool* frames) const;
    FrameHandle fit(FrameHandle picture);

    const QRect part;
    const QSize screen;
    QSize frame_size;
    int frame_format = -1;
    BufferPoolPtr pool;
};

} // namespace multimedia
