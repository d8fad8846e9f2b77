// What a file of sound says of itself, its cover, and its samples as recognisers of speech get them.
#include "fuzz/input.h"
#include "multimedia/audioplayer/audioplayer.h"
#include "multimedia/mediahandler/cmediadecode.h"
#include "multimedia/speechrecognizer_linux/speechaudio.h"

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

    CMediaDecode().decodeAudio(file.name());
    constexpr int kPieces = 10;
    const std::atomic<bool> cancelled = false;
    speechRecognize::FileAudio audio(cancelled);
    speechRecognize::SpeechSamples piece;
    if (audio.open(file.path()) < 0)
        return;
    for (int i = 0; i < kPieces && audio.read(piece) >= 0 && !piece.empty(); ++i) {
    }
}
