#include "multimedia/audioplayer/audioplayer.h"

#include "multimedia/audioplayer/audiosource.h"
#include "multimedia/base/picturefile.h"
#include "quillon/util.h"

#include <QtCore/QSet>
#include <QtCore/QStandardPaths>
#include <QtGui/QImage>

#include <algorithm>

using namespace multimedia;

namespace {
constexpr int kLeastProbeScore = 50;

MediaSource inspected(const QString& path)
{
    MediaSource source;
    openSound(source, path.toUtf8());
    return source;
}

const QSet<QString>& acceptedExtensions()
{
    static const QSet<QString> extensions{"mp3",  "aac", "ogg", "ape", "wav",
                                          "flac", "ac3", "wma", "m4r", "mp2"};
    return extensions;
}

QString coverTarget()
{
    return QStringLiteral("%1/%2.jpg")
        .arg(QStandardPaths::writableLocation(QStandardPaths::TempLocation), Util::uuid());
}

bool cover(const AVFormatContext* context, const QString& out_path)
{
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        const AVStream* stream = context->streams[i];
        if (!(stream->disposition & AV_DISPOSITION_ATTACHED_PIC))
            continue;
        const AVPacket& picture = stream->attached_pic;
        PictureReader reader(
            QByteArray::fromRawData(reinterpret_cast<const char*>(picture.data), picture.size));
        return saveImage(readImage(reader), out_path);
    }
    return false;
}

/// Ogg keeps its tags with the stream.
void albumInfo(const MediaSource& source, QVariantMap& info)
{
    for (const auto& [key, tag] : {std::pair{"Album", "album"}, {"Name", "title"}, {"Artist", "artist"}}) {
        const AVDictionaryEntry* entry = av_dict_get(source.format()->metadata, tag, nullptr, 0);
        if (!entry)
            entry = av_dict_get(source.stream()->metadata, tag, nullptr, 0);
        if (entry)
            info.insert(QString::fromLatin1(key), QString::fromUtf8(entry->value));
    }
}

/// A real video never counts as audio.
bool hasVideo(AVFormatContext* context)
{
    const int index = av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    return index >= 0 && !(context->streams[index]->disposition & AV_DISPOSITION_ATTACHED_PIC);
}

bool isDetectable(const QString& extension)
{
    return acceptedExtensions().contains(extension) && extension != QLatin1String("ape") &&
           extension != QLatin1String("flac");
}

/// The first accepted extension that the demuxer claims; "ape" and "flac" are passed over. Empty for none.
/// The demuxer of MP3 claims "mp2" first: the codec's name goes before where it is claimed, too.
QString detectedFormat(const AVInputFormat* format, AVCodecID codec)
{
    const bool has_extensions = format->extensions && *format->extensions;
    const QString claimed = QString::fromLatin1(has_extensions ? format->extensions : format->name);
    const QStringList parts = claimed.split(QLatin1Char(','));
    QString codec_name = QString::fromLatin1(avcodec_get_name(codec));
    if (parts.contains(codec_name) && isDetectable(codec_name))
        return codec_name;
    const auto found = std::find_if(parts.cbegin(), parts.cend(), isDetectable);
    return found == parts.cend() ? QString() : *found;
}

bool inspectFormat(const MediaSource& source, long long& duration, QString& format)
{
    if (!source)
        return false;
    const AVCodecID codec = source.stream()->codecpar->codec_id;
    if (hasVideo(source.format()) || !avcodec_find_decoder(codec) || source.probeScore() < kLeastProbeScore)
        return false;
    duration = source.duration();
    const QString detected = detectedFormat(source.format()->iformat, codec);
    if (detected.isEmpty())
        return false;
    if (!acceptedExtensions().contains(format))
        format = detected;
    return true;
}
} // namespace

qlonglong AudioPlayer::duration(const QString& path)
{
    const MediaSource source = inspected(path);
    return source ? source.duration() : 0;
}

QString AudioPlayer::getCover(const QString& path)
{
    const QString target = coverTarget();
    return audioCover(path, target) ? target : QString();
}

bool AudioPlayer::audioCover(const QString& path, const QString& outPath)
{
    const MediaSource source = inspected(path);
    return source && cover(source.format(), outPath);
}

bool AudioPlayer::audioFormat(const QString& path, long long& duration, QString& format)
{
    return inspectFormat(inspected(path), duration, format);
}

bool AudioPlayer::audioFormat(const QString& path, long long& duration, QString& format, QString& coverPath)
{
    const MediaSource source = inspected(path);
    if (!inspectFormat(source, duration, format))
        return false;
    const QString target = coverTarget();
    if (cover(source.format(), target))
        coverPath = target;
    return true;
}

QVariantMap AudioPlayer::getAlbumInfo(const QString& path)
{
    QVariantMap info;
    const MediaSource source = inspected(path);
    if (source)
        albumInfo(source, info);
    return info;
}
