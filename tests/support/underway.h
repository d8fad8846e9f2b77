#pragma once

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

/// Whether this process has a result open for writing that is to come into `folder`. It has no name yet, or
/// one that begins with a dot.
inline bool isUnderWay(const QString& folder)
{
    const QString begin = QFileInfo(folder).canonicalFilePath() + QLatin1Char('/');
    const auto open = QDir(QStringLiteral("/proc/self/fd"))
                          .entryInfoList(QDir::NoDotAndDotDot | QDir::System | QDir::Files);
    for (const QFileInfo& descriptor : open) {
        const QString file = descriptor.symLinkTarget();
        if (file.startsWith(begin + QLatin1Char('#')) || file.startsWith(begin + QLatin1Char('.')))
            return true;
    }
    return false;
}
