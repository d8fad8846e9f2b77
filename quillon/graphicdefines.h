#pragma once

#include "quillon/quillon_global.h"

#include <QtCore/QObject>

/// Enumerations of graphic editing shared between the client's QML and its native code.
///
/// A meta-object-only namespace: there are no instances, only `GraphicDefines::staticMetaObject`.
namespace GraphicDefines {
Q_NAMESPACE_EXPORT(QUILLON_EXPORT)

/// What the pointer draws on a picture.
enum GraphicType {
    Null = 0,
    Rectangle = 1,
    Ellipse = 2,
    Line = 3,
    Arrow = 4,
    Pen = 5,
    Mosaic = 6,
    Text = 7,
};
Q_ENUM_NS(GraphicType)

/// Width of what is drawn, in pixels of the shown picture.
enum LineWidth {
    Thin = 2,
    Medium = 4,
    Thick = 8,
};
Q_ENUM_NS(LineWidth)

/// What the pointer has hold of while a drawn thing is selected.
enum HandleType {
    NoHandle = 0,
    TopLeft = 1,
    Top = 2,
    TopRight = 3,
    Right = 4,
    BottomRight = 5,
    Bottom = 6,
    BottomLeft = 7,
    Left = 8,
    Body = 9,
};
Q_ENUM_NS(HandleType)

} // namespace GraphicDefines
