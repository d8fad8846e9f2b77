#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

struct AVFormatContext;

namespace multimedia {

/// A file that comes whole or not at all: written beside its target, and put in the target's place by
/// `commit`. Whatever fails before, the target is as it was.
///
/// A file that is replaced leaves its permissions to the new one, and a link that led to it goes on leading
/// there. Otherwise only its owner may read a file in a folder that others write to, as that of temporary
/// files (0600); elsewhere it is as the user's umask has it.
///
/// Where the file system can, the file has no name until then, so that nothing is left even when the process
/// is killed. One thread. Results are 0, or FFmpeg's negative code.
class ResultFile
{
public:
    /// @param target  UTF-8; its folder must exist and be writable
    explicit ResultFile(std::string target);
    /// Without `commit` nothing is left.
    ~ResultFile();
    ResultFile(const ResultFile&) = delete;
    ResultFile& operator=(const ResultFile&) = delete;

    /// Refuses a target that is no regular file, or may not be written.
    int open();
    /// `open`, for a muxer; `commit` closes what it writes into.
    int openFor(AVFormatContext& context);
    /// Fails at once where the disk has not so many bytes, instead of when it is full.
    int reserve(int64_t bytes);
    /// To be given to who writes it, in this process; from `open` until `commit`.
    std::string path() const;
    int write(const char* bytes, size_t count);
    /// Writes through to the disk and replaces the target. Whoever wrote it has closed it before.
    int commit();
    /// `commit`, of what a muxer wrote.
    int commit(AVFormatContext& context);

private:
    std::string sibling() const;
    int create(unsigned mode);

    std::string target;
    int descriptor = -1;
    std::string name; ///< of the file beside the target; empty while it has none
};

/// Makes an empty file that only its owner may read, for a recording to be written into: what there is of it
/// is kept, however it ends, so that it is no `ResultFile`. False if it cannot, or if there is something of
/// that name.
///
/// @param path  UTF-8
bool makePrivateFile(const std::string& path);

} // namespace multimedia
