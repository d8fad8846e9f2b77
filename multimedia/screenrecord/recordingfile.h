#pragma once

#include <cstdint>
#include <string>

/// @file
/// What becomes of the file of a recording when it has ended.

namespace multimedia {

/// Turns an MP4 of fragments, as a recording is while it runs, into an ordinary one with its index in front.
/// The packets are copied as they are, beside the file, which is replaced at the end; after a failure it is
/// as it was.
///
/// @param path     UTF-8
/// @param packets  how many there are, or more: room for the index is left by it
/// @return 0, or FFmpeg's negative code
int putIndexInFront(const std::string& path, int64_t packets);

/// Whether the file has a picture that can be decoded.
bool hasPicture(const std::string& path);

} // namespace multimedia
