// The maps that QML hands over, written as JSON.
#include "fuzz/input.h"
#include "multimedia/imageedit/editdescription.h"
#include "multimedia/mediahandler/cwavewriter.h"
#include "multimedia/speechrecognizer_linux/speechaudio.h"

#include <QtCore/QJsonDocument>

void fuzz(const uint8_t* data, size_t size)
{
    const QVariantMap map =
        QJsonDocument::fromJson(QByteArray(reinterpret_cast<const char*>(data), int(size)))
            .toVariant()
            .toMap();
    CWaveWriter::writeWaveFile(map, resultFolder() + QStringLiteral("/out.wav"));
    const ImageEdit::EditDescription description(map);
    for (const QSize& picture : {QSize(1, 1), QSize(4000, 3000), QSize(65535, 65535)})
        description.cropRect(picture);
    if (description.overlay_path.isEmpty()) // it would be removed
        description.applied(QImage(16, 8, QImage::Format_RGB32));

    const QByteArray samples = map.value(QStringLiteral("pcmData")).toByteArray();
    const QVariantMap info = map.value(QStringLiteral("pcmInfo")).toMap();
    speechRecognize::PcmAudio audio;
    audio.data = reinterpret_cast<const uint8_t*>(samples.constData());
    audio.size = size_t(samples.size());
    audio.format =
        speechRecognize::PcmAudio::Format(1 + (info.value(QStringLiteral("sampleFormat")).toInt() & 3));
    audio.sample_rate = info.value(QStringLiteral("sampleRate")).toDouble();
    audio.channels = info.value(QStringLiteral("channels")).toInt();
    audio.interleaved = info.value(QStringLiteral("interleaved")).toBool();
    speechRecognize::BufferAudio buffer(audio);
    speechRecognize::SpeechSamples piece;
    while (buffer.read(piece) >= 0 && !piece.empty()) {
    }
}
