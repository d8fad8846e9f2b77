#include "multimedia/mediahandler/cwavewriter.h"

#include "multimedia/base/resultfile.h"
#include "multimedia/base/warning.h"
#include "multimedia/mediahandler/cmediadecode.h"
#include "quillon/util.h"

#include <QtCore/QDataStream>
#include <QtCore/QFile>
#include <QtCore/QtDebug>

namespace {

const auto kPcmData = QStringLiteral("pcmData");
const auto kPcmInfo = QStringLiteral("pcmInfo");
const auto kSampleFormat = QStringLiteral("sampleFormat");
const auto kSampleRate = QStringLiteral("sampleRate");
const auto kChannels = QStringLiteral("channels");

constexpr int kHeaderBytes = 44;
constexpr qint32 kRiffExcess = 32;
constexpr qint16 kSampleBits = 16;

QByteArray waveHeader(quint32 dataBytes, qint32 sampleRate, qint32 channels)
{
    const auto block_align = qint16(quint32(channels) * kSampleBits / 8);
    QByteArray header;
    header.reserve(kHeaderBytes);
    QDataStream stream(&header, QIODevice::WriteOnly);
    stream.setByteOrder(QDataStream::LittleEndian);
    stream.writeRawData("RIFF", 4);
    stream << quint32(dataBytes + kRiffExcess);
    stream.writeRawData("WAVEfmt ", 8);
    stream << qint32(16) << qint16(1) << qint16(channels) << sampleRate
           << quint32(qint64(block_align) * sampleRate) << block_align << kSampleBits;
    stream.writeRawData("data", 4);
    stream << dataBytes;
    return header;
}

/// What a longer file at `path` has behind `begin`.
int copyTail(const QString& path, qint64 begin, multimedia::ResultFile& to)
{
    constexpr qint64 kPiece = 1 << 20;
    QFile former(path);
    if (!former.open(QIODevice::ReadOnly) || !former.seek(begin))
        return 0;
    int code = 0;
    for (QByteArray piece = former.read(kPiece); code >= 0 && !piece.isEmpty(); piece = former.read(kPiece))
        code = to.write(piece.constData(), size_t(piece.size()));
    return code;
}

} // namespace

bool CWaveWriter::writeWaveFile(const QVariantMap& pcm, const QString& path)
{
    const QVariantMap info = pcm.value(kPcmInfo).toMap();
    if (!pcm.contains(kPcmData) || !info.contains(kSampleFormat) || !info.contains(kSampleRate) ||
        !info.contains(kChannels))
        return false;
    const QByteArray data = pcm.value(kPcmData).toByteArray();
    const QByteArray header =
        waveHeader(quint32(data.size()), info.value(kSampleRate).toInt(), info.value(kChannels).toInt());
    multimedia::ResultFile file(path.toStdString());
    int code = file.open();
    if (code >= 0)
        code = file.write(header.constData(), size_t(header.size()));
    if (code >= 0)
        code = file.write(data.constData(), size_t(data.size()));
    if (code >= 0)
        code = copyTail(path, header.size() + data.size(), file);
    if (code >= 0)
        code = file.commit();
    if (code < 0)
        qWarning("writeWaveFile: %s: %s", qUtf8Printable(path), ffmpegErrorString(code).c_str());
    return code >= 0;
}

bool CWaveWriter::transcodeToWave(const QString& srcPath, const QString& dstPath)
{
    if (srcPath.isEmpty() || !Util::fileExists(srcPath))
        return false;
    CMediaDecode decode;
    const QByteArray data = decode.decodeAudio(srcPath);
    if (data.isEmpty())
        return false;
    return writeWaveFile({{kPcmData, data}, {kPcmInfo, decode.audioInfo()}}, dstPath);
}
