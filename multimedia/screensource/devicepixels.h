#pragma once

#include <QtCore/QRect>
#include <QtCore/QtGlobal>

/// @file
/// From a rectangle of a screen, in logical pixels, to what is captured and what is encoded.

namespace multimedia {

/// Corner and size, each cut off to whole device pixels. What no screen could hold is cut down, before it
/// overflows.
inline QRect toDevicePixels(const QRect& rect, double pixel_ratio)
{
    constexpr double kLimit = 1 << 24;
    const auto scaled = [&](double length) { return int(qBound(-kLimit, length * pixel_ratio, kLimit)); };
    return {scaled(rect.left()), scaled(rect.top()), scaled(1.0 + rect.right() - rect.left()),
            scaled(1.0 + rect.bottom() - rect.top())};
}

/// Each odd side one longer, as 4:2:0 pictures need it.
inline QSize roundUpToEven(const QSize& size)
{
    return {size.width() + size.width() % 2, size.height() + size.height() % 2};
}

} // namespace multimedia
