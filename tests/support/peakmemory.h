#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QFile>

/// How much more memory the process has held at once since it began.
class PeakMemory
{
public:
    PeakMemory()
    {
        QFile reset(QStringLiteral("/proc/self/clear_refs"));
        reset.open(QIODevice::WriteOnly);
        reset.write("5");
        reset.close();
        begin = peak();
    }

    qint64 megabytes() const { return (peak() - begin) / 1024; }

private:
    /// Kilobytes.
    static qint64 peak()
    {
        QFile status(QStringLiteral("/proc/self/status"));
        status.open(QIODevice::ReadOnly);
        const QByteArray text = status.readAll();
        const int label = text.indexOf("VmHWM:");
        return text.mid(label + 6, text.indexOf("kB", label) - label - 6).trimmed().toLongLong();
    }

    qint64 begin = 0;
};
