#pragma once

#include "multimedia/multimedia_global.h"

#include <QtCore/QObject>

/// The kinds of device that the library keeps lists of, as native code and QML name them.
///
/// A meta-object-only namespace: there are no instances.
namespace DeviceTypeDefine {
Q_NAMESPACE_EXPORT(MULTIMEDIA_EXPORT)

enum DeviceType {
    Null = 0,
    AudioInput = 1,
    AudioOutput = 2,
    Camera = 3,
    Screen = 4,
};
Q_ENUM_NS(DeviceType)

} // namespace DeviceTypeDefine
