#include "multimedia/base/resultfile.h"

extern "C" {
#include <libavutil/error.h>
}

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace multimedia {

namespace {

std::string folderOf(const std::string& path)
{
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

} // namespace

ResultFile::ResultFile(std::string target)
    : target(std::move(target))
{}

ResultFile::~ResultFile()
{
    if (!name.empty())
        ::unlink(name.c_str());
    if (descriptor >= 0)
        ::close(descriptor);
}

int ResultFile::open()
{
    descriptor = ::open(folderOf(target).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor >= 0)
        return 0;
    std::string pattern = sibling() + ".XXXXXX"; // no such files on this file system: one with a name
    descriptor = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (descriptor < 0)
        return AVERROR(errno);
    name = pattern;
    return 0;
}

int ResultFile::reserve(int64_t bytes)
{
    const int result = bytes > 0 ? ::fallocate(descriptor, FALLOC_FL_KEEP_SIZE, 0, bytes) : 0;
    return result == 0 || errno == EOPNOTSUPP ? 0 : AVERROR(errno);
}

std::string ResultFile::path() const
{
    return name.empty() ? "/proc/self/fd/" + std::to_string(descriptor) : name;
}

int ResultFile::commit()
{
    if (::fdatasync(descriptor) != 0)
        return AVERROR(errno);
    if (name.empty()) {
        const std::string made = sibling();
        if (::linkat(AT_FDCWD, path().c_str(), AT_FDCWD, made.c_str(), AT_SYMLINK_FOLLOW) != 0)
            return AVERROR(errno);
        name = made;
    }
    if (std::rename(name.c_str(), target.c_str()) != 0)
        return AVERROR(errno);
    name.clear();
    return 0;
}

/// A name beside the target that no other result of this or another process takes.
std::string ResultFile::sibling() const
{
    static std::atomic<unsigned> count = 0;
    const std::string folder = folderOf(target);
    return folder + "." + target.substr(folder == "." ? 0 : folder.size()) + "." +
           std::to_string(::getpid()) + "." + std::to_string(++count);
}

} // namespace multimedia
