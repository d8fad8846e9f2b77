#include "quillon/quillonlog.h"

#include <QtCore/QLoggingCategory>

namespace {
Q_LOGGING_CATEGORY(category, "quillon")
}

void QuillonLog::info(const QString& text)
{
    qCInfo(category).noquote() << text;
}

void QuillonLog::error(const QString& text)
{
    qCCritical(category).noquote() << text;
}
