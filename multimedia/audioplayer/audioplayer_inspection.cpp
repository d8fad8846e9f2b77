#include "multimedia/audioplayer/audioplayer.h"

#include "multimedia/audioplayer/audioplayer_p.h"
#include "quillon/util.h"

#include <QtCore/QBuffer>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QSet>
#include <QtCore/QStandardPaths>
#include <QtGui/QImage>
#include <QtGui/QImageReader>

#include <algorithm>

namespace {
constexpr std::chrono::seconds kLongestInspection(100);
constexpr qint64 kMostCoverPixels = 100'000'000;
constexpr int kLeastProbeScore = 50;

/// An input opened for a look, with its time limit.
struct Inspection
{
    explicit Inspection(const QString& path)
        : is_open(initFormat(input, stream_index, path.toUtf8(), {isOver, this}))
    {}
    Inspection(const Inspection&) = delete;
    Inspection& operator=(const Inspection&) = delete;

    static int isOver(void* self) { return static_cast<Inspection*>(self)->deadline.hasExpired() ? 1 : 0; }

    const QDeadlineTimer deadline{kLongestInspection};
    multimedia::InputPtr input;
    int stream_index = 0;
    const bool is_open;
};

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

QImage readCover(const AVPacket& picture)
{
    QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(picture.data), picture.size);
    QBuffer buffer(&bytes);
    QImageReader reader(&buffer);
    reader.setDecideFormatFromContent(true);
    const QSize size = reader.size();
    if (qint64{size.width()} * size.height() > kMostCoverPixels) {
        qWarning("cover of %d x %d pixels is refused", size.width(), size.height());
        return {};
    }
    return reader.read();
}

bool cover(const AVFormatContext* context, const QString& out_path)
{
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        const AVStream* stream = context->streams[i];
        if (!(stream->disposition & AV_DISPOSITION_ATTACHED_PIC))
            continue;
        const QImage image = readCover(stream->attached_pic);
        return !image.isNull() && image.save(out_path);
    }
    return false;
}

void albumInfo(const AVFormatContext* context, QVariantMap& info)
{
    for (const auto& [key, tag] : {std::pair{"Album", "album"}, {"Name", "title"}, {"Artist", "artist"}}) {
        const AVDictionaryEntry* entry = av_dict_get(context->metadata, tag, nullptr, 0);
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

bool inspectFormat(const Inspection& inspection, long long& duration, QString& format)
{
    if (!inspection.is_open)
        return false;
    AVFormatContext* context = inspection.input.get();
    const AVStream* stream = context->streams[inspection.stream_index];
    if (hasVideo(context) || !avcodec_find_decoder(stream->codecpar->codec_id) ||
        context->probe_score < kLeastProbeScore)
        return false;
    duration = context->duration / 1000;
    const QString detected = detectedFormat(context->iformat, stream->codecpar->codec_id);
    if (detected.isEmpty())
        return false;
    if (!acceptedExtensions().contains(format))
        format = detected;
    return true;
}
} // namespace

qlonglong AudioPlayer::duration(const QString& path)
{
    const Inspection inspection(path);
    return inspection.is_open ? inspection.input->duration / 1000 : 0;
}

QString AudioPlayer::getCover(const QString& path)
{
    const QString target = coverTarget();
    return audioCover(path, target) ? target : QString();
}

bool AudioPlayer::audioCover(const QString& path, const QString& outPath)
{
    const Inspection inspection(path);
    return inspection.is_open && cover(inspection.input.get(), outPath);
}

bool AudioPlayer::audioFormat(const QString& path, long long& duration, QString& format)
{
    return inspectFormat(Inspection(path), duration, format);
}

bool AudioPlayer::audioFormat(const QString& path, long long& duration, QString& format, QString& coverPath)
{
    const Inspection inspection(path);
    if (!inspectFormat(inspection, duration, format))
        return false;
    const QString target = coverTarget();
    if (cover(inspection.input.get(), target))
        coverPath = target;
    return true;
}

QVariantMap AudioPlayer::getAlbumInfo(const QString& path)
{
    QVariantMap info;
    const Inspection inspection(path);
    if (inspection.is_open)
        albumInfo(inspection.input.get(), info);
    return info;
}
