// A film, and what is done with it: a clip, whose span and container the first byte chooses, and its first
// picture.
#include "fuzz/input.h"
#include "multimedia/videocapture/videocapture.h"
#include "multimedia/videoeditor/videoclipthread.h"

#include <QtCore/QFile>
#include <QtCore/QSize>

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

    long long duration = 0;
    QString format;
    QString picture;
    QSize shown;
    VideoCapture::instance()->syncDecodeFormat(file.name(), duration, format, picture, shown);
    QFile::remove(picture);
}
