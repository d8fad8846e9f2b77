#include "fuzz/input.h"

extern "C" {
#include <libavutil/log.h>
}

#include <QtCore/QTemporaryDir>
#include <QtGui/QGuiApplication>

#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

InputFile::InputFile(const uint8_t* data, size_t size)
    : descriptor(::memfd_create("input", MFD_CLOEXEC))
{
    if (descriptor < 0 || ::write(descriptor, data, size) != ssize_t(size))
        std::abort();
}

InputFile::~InputFile()
{
    ::close(descriptor);
}

std::string InputFile::path() const
{
    return "/proc/self/fd/" + std::to_string(descriptor);
}

QString resultFolder()
{
    static const QTemporaryDir folder(QStringLiteral("/dev/shm/fuzz-XXXXXX"));
    return folder.path();
}

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    ::setenv("QT_LOGGING_RULES", "*=false", 1);
    ::setenv("TMPDIR", qPrintable(resultFolder()), 1);
    static const QGuiApplication application(*argc, *argv);
    av_log_set_level(AV_LOG_QUIET);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz(data, size);
    return 0;
}
