#pragma once

#include <cstdint>
#include <string>

namespace multimedia {

/// A file that comes whole or not at all: written beside its target, and put in the target's place by
/// `commit`. Only its owner may read it (0600).
///
/// Where the file system can, the file has no name until then, so that nothing is left even when the process
/// is killed. One thread. Results are 0, or FFmpeg's negative code.
class ResultFile
{
public:
    /// @param target  UTF-8; its folder must exist
    explicit ResultFile(std::string target);
    /// Without `commit` nothing is left.
    ~ResultFile();
    ResultFile(const ResultFile&) = delete;
    ResultFile& operator=(const ResultFile&) = delete;

    int open();
    /// Fails at once where the disk has not so many bytes, instead of when it is full.
    int reserve(int64_t bytes);
    /// To be given to who writes it, in this process; from `open` until `commit`.
    std::string path() const;
    /// Writes through to the disk and replaces the target. Whoever wrote it has closed it before.
    int commit();

private:
    std::string sibling() const;

    const std::string target;
    int descriptor = -1;
    std::string name; ///< of the file beside the target; empty while it has none
};

} // namespace multimedia
