#pragma once

#include <cstdint>
#include <string>

/// What the blocks of a GIF file tell, without a look at any pixel.
struct GifStructure
{
    /// The blocks follow one another without a fault up to the trailer, or to the end of the file behind a
    /// whole picture: many a program leaves the trailer out.
    bool isComplete = false;
    int64_t frameCount = 0;
    /// Compressed size of the largest frame, at most 255/256 of the bytes it takes in the file.
    int64_t largestFrameBytes = 0;
};

/// Walks through the blocks of the file at `path` (in the file system's encoding), which must be a GIF.
///
/// FFmpeg's demuxer takes a missing end for an end and holds a whole frame in memory, whatever its size; so
/// this is asked first. Source: the GIF89a grammar (CompuServe, 1990).
GifStructure readGifStructure(const std::string& path);
