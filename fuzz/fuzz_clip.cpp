// The copier of packets: a clip of the film behind the first byte, which chooses the span and the container.
#include "fuzz/input.h"
#include "multimedia/videoeditor/videoclipthread.h"

#include <array>
#include <cstdio>

void fuzz(const uint8_t* data, size_t size)
{
    if (size < 1)
        return;
    static FILE* const silent = std::freopen("/dev/null", "w", stdout);
    static_cast<void>(silent);
    static constexpr std::array kSuffixes = {"mkv", "mp4", "ts", "avi"};
    const InputFile file(data + 1, size - 1);
    const int start_ms = (data[0] >> 2 & 7) * 500;
    const int length_ms = (data[0] >> 5 & 7) * 1000;
    VideoClipThread clip;
    clip.startClip(file.name(),
                   resultFolder() + QStringLiteral("/out.") + QLatin1String(kSuffixes[data[0] & 3]), start_ms,
                   start_ms + length_ms, true);
}
