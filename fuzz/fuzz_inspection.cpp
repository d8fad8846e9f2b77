// What a file of sound says of itself, and its cover.
#include "fuzz/input.h"
#include "multimedia/audioplayer/audioplayer.h"

#include <QtCore/QFile>

void fuzz(const uint8_t* data, size_t size)
{
    const InputFile file(data, size);
    long long duration = 0;
    QString format;
    QString cover;
    AudioPlayer::audioFormat(file.name(), duration, format, cover);
    QFile::remove(cover);
    AudioPlayer::getAlbumInfo(file.name());
}
