#pragma once

#include <string>

namespace multimedia {

/// Opens a file for reading unless it is a folder, a pipe or a device, which are not waited for.
///
/// @param path  UTF-8
/// @return a file descriptor, closed when a program is run; negative, FFmpeg's code, on failure
int openRegularFile(const std::string& path);

} // namespace multimedia
