#include "multimedia/base/resultfile.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
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

bool makePrivateFile(const std::string& path)
{
    const int descriptor = ::open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0)
        return false;
    ::close(descriptor);
    return true;
}

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
    std::error_code error;
    const auto resolved = std::filesystem::canonical(target, error);
    if (!error)
        target = resolved;
    struct stat former = {};
    const bool replaces = !error && ::stat(target.c_str(), &former) == 0;
    if (replaces && !S_ISREG(former.st_mode))
        return AVERROR(EINVAL);
    if (replaces && ::access(target.c_str(), W_OK) != 0)
        return AVERROR(errno);
    struct stat folder = {};
    if (::stat(folderOf(target).c_str(), &folder) != 0)
        return AVERROR(errno);
    constexpr mode_t kPrivate = S_IRUSR | S_IWUSR;
    constexpr mode_t kForAll = kPrivate | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
    const int code = create(replaces || (folder.st_mode & S_IWOTH) ? kPrivate : kForAll);
    if (code >= 0 && replaces && ::fchmod(descriptor, former.st_mode & ~mode_t(S_ISUID | S_ISGID)) != 0)
        return AVERROR(errno);
    return code;
}

int ResultFile::create(unsigned mode)
{
    descriptor = ::open(folderOf(target).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mode);
    if (descriptor >= 0)
        return 0;
    const std::string made = sibling(); // no such files on this file system: one with a name
    descriptor = ::open(made.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, mode);
    if (descriptor < 0)
        return AVERROR(errno);
    name = made;
    return 0;
}

int ResultFile::openFor(AVFormatContext& context)
{
    const int code = open();
    return code < 0 ? code : avio_open(&context.pb, ("file:" + path()).c_str(), AVIO_FLAG_WRITE);
}

int ResultFile::write(const char* bytes, size_t count)
{
    while (count > 0) {
        const ssize_t written = ::write(descriptor, bytes, count);
        if (written < 0 && errno != EINTR)
            return AVERROR(errno);
        if (written > 0) {
            bytes += written;
            count -= size_t(written);
        }
    }
    return 0;
}

int ResultFile::commit(AVFormatContext& context)
{
    const int code = avio_closep(&context.pb);
    return code < 0 ? code : commit();
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
