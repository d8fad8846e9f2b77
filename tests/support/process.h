#pragma once

#include <QtCore/QDir>
#include <QtCore/QFile>

/// A size of memory that the kernel tells of the process, such as "VmPeak", in bytes.
inline qint64 memoryOf(const QByteArray& field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    const QByteArray text = status.readAll();
    const int begin = text.indexOf(field + ':') + field.size() + 1;
    return text.mid(begin, text.indexOf("kB", begin) - begin).trimmed().toLongLong() * 1024;
}

/// How many threads ("task") or open files ("fd") the process has.
inline int countOf(const char* kind)
{
    return QDir(QLatin1String("/proc/self/") + kind)
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
        .size();
}
