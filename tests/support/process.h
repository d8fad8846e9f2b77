#pragma once

#include <QtCore/QFile>
#include <QtCore/QRegularExpression>

/// The most address space that the process ever had.
inline qint64 peakBytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    const QString text = QString::fromLatin1(status.readAll());
    static const QRegularExpression peak(QStringLiteral("VmPeak:\\s*(\\d+) kB"));
    return peak.match(text).captured(1).toLongLong() * 1024;
}
