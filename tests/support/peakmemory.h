#pragma once

#include "tests/support/process.h"

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
        begin = memoryOf("VmHWM");
    }

    qint64 megabytes() const { return (memoryOf("VmHWM") - begin) / 1024 / 1024; }

private:
    qint64 begin = 0;
};
