#pragma once

#include <QtCore/QRect>
#include <QtGui/QScreen>

/// @file
/// From a rectangle of a screen, in logical pixels, to what is captured and what is encoded.

namespace multimedia {

/// Corner and size, each cut off to whole device pixels. A null screen has a pixel ratio of 1.
inline QRect toDevicePixels(const QRect& rect, const QScreen* screen)
{
    const double ratio = screen ? screen->devicePixelRatio() : 1;
    return {int(rect.left() * ratio), int(rect.top() * ratio), int(rect.width() * ratio),
            int(rect.height() * ratio)};
}

/// Each odd side one longer, as 4:2:0 pictures need it.
inline QSize roundUpToEven(const QSize& size)
{
    return {size.width() + size.width() % 2, size.height() + size.height() % 2};
}

} // namespace multimedia
