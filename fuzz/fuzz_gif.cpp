// A look at a GIF, and its conversion.
#include "fuzz/input.h"
#include "multimedia/gifhandler/gifhandler.h"
#include "multimedia/gifhandler/gifstructure.h"

void fuzz(const uint8_t* data, size_t size)
{
    const InputFile file(data, size);
    const GifStructure structure = readGifStructure(file.path());
    // The rest is the codec's work.
    constexpr int kMostPictures = 50;
    const bool is_small = size > 9 && data[7] == 0 && data[9] == 0;
    if (is_small && structure.frameCount <= kMostPictures)
        GifHandler().compressGifSync(QStringLiteral("id"), file.name(),
                                     resultFolder() + QStringLiteral("/out.gif"), 1, {});
}
