#pragma once

#include "quillon/quillon_global.h"

#include <QtCore/QString>

/// The client's log, here Qt's own under the category "quillon". Any thread.
namespace QuillonLog {

QUILLON_EXPORT void info(const QString& text);
QUILLON_EXPORT void error(const QString& text);

} // namespace QuillonLog
