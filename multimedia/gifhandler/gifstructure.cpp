#include "multimedia/gifhandler/gifstructure.h"

#include <algorithm>
#include <fstream>

namespace {

constexpr int kSignatureBytes = 6;
constexpr int kPositionBytes = 8; ///< of an image: left, top, width, height
constexpr int kSizeBytes = 4;     ///< of the screen: width, height

enum BlockLabel : int { Padding = 0x00, Extension = 0x21, Image = 0x2C, Trailer = 0x3B };

/// Skips the colour table that a byte of flags announces.
void skipColourTable(std::istream& file, int flags)
{
    if (flags & 0x80)
        file.ignore(3LL << ((flags & 0x07) + 1));
}

/// Skips a chain of sub-blocks up to its terminator; the number of data bytes in it.
int64_t skipSubBlocks(std::istream& file)
{
    int64_t bytes = 0;
    for (int size = file.get(); file && size > 0; size = file.get()) {
        file.ignore(size);
        bytes += size;
    }
    return bytes;
}

} // namespace

GifStructure readGifStructure(const std::string& path)
{
    GifStructure structure;
    std::ifstream file(path, std::ios::binary);
    file.ignore(kSignatureBytes + kSizeBytes);
    const int screen_flags = file.get();
    file.ignore(2); // background colour, aspect ratio
    skipColourTable(file, screen_flags);

    for (int label = file.get(); file; label = file.get()) {
        switch (label) {
        case Padding:
            break;
        case Extension:
            file.ignore(1);
            skipSubBlocks(file);
            break;
        case Image: {
            file.ignore(kPositionBytes);
            skipColourTable(file, file.get());
            file.ignore(1); // LZW's minimum code size
            const int64_t bytes = skipSubBlocks(file);
            if (!file)
                return structure;
            ++structure.frameCount;
            structure.largestFrameBytes = std::max(structure.largestFrameBytes, bytes);
            break;
        }
        case Trailer:
            structure.isComplete = true;
            return structure;
        default:
            return structure;
        }
    }
    structure.isComplete = structure.frameCount > 0;
    return structure;
}
