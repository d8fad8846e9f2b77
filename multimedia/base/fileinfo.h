#pragma once

#include <string>

namespace multimedia {

/// Where a file stands: `dir`/`name`.`format`, in UTF-8.
struct FileInfo
{
    std::string dir;
    std::string name;
    std::string format; ///< extension without the dot; chooses the muxer

    std::string path() const { return dir + "/" + name + "." + format; }
};

} // namespace multimedia
