#include "multimedia/base/regularfile.h"

extern "C" {
#include <libavutil/error.h>
}

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace multimedia {

int openRegularFile(const std::string& path)
{
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0)
        return AVERROR(errno);
    struct stat status = {};
    if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode))
        return descriptor;
    ::close(descriptor);
    return AVERROR(ENOENT);
}

} // namespace multimedia
