#pragma once

#include <QtCore/QDir>
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

/// How many threads ("task") or open files ("fd") the process has.
inline int countOf(const char* kind)
{
    return QDir(QLatin1String("/proc/self/") + kind)
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
        .size();
}
