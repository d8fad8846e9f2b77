#pragma once

#include "quillon/quillon_global.h"

#include <QtCore/QObject>

/// Enumerations of graphic editing shared between the client's QML and its native code.
///
/// A meta-object-only namespace: there are no instances, only `GraphicDefines::staticMetaObject`.
namespace GraphicDefines {
Q_NAMESPACE_EXPORT(QUILLON_EXPORT)
}
