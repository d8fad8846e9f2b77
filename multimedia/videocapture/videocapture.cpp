#include "multimedia/videocapture/videocapture.h"

#include "multimedia/base/filtergraph.h"
#include "multimedia/base/mediasource.h"
#include "multimedia/base/picturefile.h"
#include "multimedia/base/pixelscaler.h"
#include "multimedia/base/rotation.h"
#include "multimedia/base/warning.h"
#include "quillon/util.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/opt.h>
}

#include <QtCore/QLoggingCategory>
#include <QtCore/QStandardPaths>
#include <QtGui/QImage>

#include <array>
#include <cmath>
#include <cstdlib>

using namespace multimedia;

namespace {
constexpr int kMaxWidth = 1024;
constexpr int kAlignment = 8;
/// A container recognised by the name of its file only has 50.
constexpr int kTrustedProbeScore = 51;
constexpr QSize kUnknownSize(-1, -1);

/// Opens the video of a file.
bool open(MediaSource& source, const char* path, const SourceOptions& options = {})
{
    int code = source.open(path, options);
    if (code >= 0)
        code = source.findStreams();
    if (code >= 0)
        code = source.select(AVMEDIA_TYPE_VIDEO);
    if (code < 0)
        qCDebug(MultimediaCategoryLogging, "no video in %s: %s", path, ffmpegErrorString(code).c_str());
    return code >= 0;
}

CodecContextPtr openVideo(const AVStream& stream)
{
    CodecContextPtr codec;
    if (MediaSource::makeDecoder(codec, stream) < 0)
        qCDebug(MultimediaCategoryLogging, "could not open decoder of %s",
                avcodec_get_name(stream.codecpar->codec_id));
    return codec;
}

bool hasDecoder(const MediaSource& source)
{
    return avcodec_find_decoder(source.stream()->codecpar->codec_id) != nullptr;
}

/// Opens a file that is trusted to be a video.
bool openTrusted(MediaSource& source, const QString& path, long long& duration, QString& format)
{
    if (!open(source, path.toUtf8()))
        return false;
    if ((source.stream()->disposition & AV_DISPOSITION_ATTACHED_PIC) ||
        source.probeScore() < kTrustedProbeScore || !hasDecoder(source)) {
        qCDebug(MultimediaCategoryLogging) << "not a video:" << path;
        return false;
    }
    duration = source.duration();
    format = QString::fromUtf8(source.format()->iformat->extensions).split(QLatin1Char(',')).first();
    return true;
}

QSize shownSize(const AVCodecContext& codec, const AVStream& stream)
{
    const QSize size(codec.width, codec.height);
    return rotateTag(stream).value_or(0) % 180 == 0 ? size : size.transposed();
}

int roundedUp(int value)
{
    return (value + kAlignment - 1) / kAlignment * kAlignment;
}

QByteArray filterText(const AVCodecContext& codec, int rotation)
{
    const int width = codec.width <= kMaxWidth ? roundedUp(codec.width) : kMaxWidth;
    int height = int(float(codec.height) * (float(width) / float(codec.width)));
    if (rotation == 90 || rotation == 270)
        height = roundedUp(height);
    const auto scale = QStringLiteral("scale=%1:%2").arg(width).arg(height);
    const auto turned_size = QStringLiteral(":ow=%1:oh=%2").arg(height).arg(width);
    switch (rotation) {
    case 90:
        return (scale % QLatin1String(",rotate=3*PI/2") % turned_size).toLatin1();
    case 180:
        return (scale % QLatin1String(",rotate=PI")).toLatin1();
    case 270:
        return (scale % QLatin1String(",rotate=PI/2") % turned_size).toLatin1();
    default:
        return scale.toLatin1();
    }
}

bool swapsSides(int rotation)
{
    const int turn = std::abs(rotation);
    return (turn >= 90 && turn <= 179) || (turn >= 270 && turn <= 359);
}

} // namespace

VideoCapture* VideoCapture::instance()
{
    static auto* const s_instance = new VideoCapture;
    return s_instance;
}

VideoCapture::VideoCapture()
    : m_tempPath(QStandardPaths::writableLocation(QStandardPaths::TempLocation))
{}

bool VideoCapture::syncDecodeFormat(const QString& path, long long& duration, QString& format, QString& image,
                                    QSize& size)
{
    MediaSource source;
    if (!openTrusted(source, path, duration, format))
        return false;
    const auto file = QStringLiteral("%1/%2%3").arg(m_tempPath, Util::uuid(), QLatin1String(".jpg"));
    if (saveFirstFrame(source, file, size))
        image = file;
    return true;
}

bool VideoCapture::syncDecodeFormat(const QString& path, long long& duration, QString& format, QSize& size)
{
    MediaSource source;
    if (!openTrusted(source, path, duration, format))
        return false;
    if (const CodecContextPtr codec = openVideo(*source.stream()))
        size = shownSize(*codec, *source.stream());
    return true;
}

bool VideoCapture::syncDecodeCapture(const QString& path, const QString& image)
{
    MediaSource source;
    QSize size;
    return open(source, path.toUtf8()) && hasDecoder(source) && saveFirstFrame(source, image, size);
}

bool VideoCapture::captureFirstFrame(const char* path, const QString& image)
{
    MediaSource source;
    QSize size;
    return open(source, path) && saveFirstFrame(source, image, size);
}

QSize VideoCapture::videoSourceSize(const QString& path)
{
    MediaSource source;
    if (!open(source, path.toUtf8()))
        return kUnknownSize;
    const CodecContextPtr codec = openVideo(*source.stream());
    return codec ? shownSize(*codec, *source.stream()) : kUnknownSize;
}

int VideoCapture::rotation(const QString& path)
{
    MediaSource source;
    if (!open(source, path.toUtf8()))
        return 0;
    const AVDictionaryEntry* entry = av_dict_get(source.format()->metadata, "rotation", nullptr, 0);
    return entry ? int(std::strtol(entry->value, nullptr, 10)) : 0;
}

int VideoCapture::getDisplayMatrix(AVStream* stream)
{
    const double turn = displayTurn(*stream).value_or(0);
    return int(turn - 360 * std::floor(turn / 360 + 0.0025));
}

bool VideoCapture::initFormat(AVFormatContext** context, int* videoIndex, const char* path)
{
    MediaSource source;
    SourceOptions options;
    options.time_limit = {}; // whoever gets the input may read from it for ever
    options.is_given_away = true;
    if (!open(source, path, options))
        return false;
    *videoIndex = source.streamIndex();
    *context = source.releaseBare();
    return true;
}

bool VideoCapture::initDecoder(AVStream* stream, AVCodecContext** codecContext)
{
    CodecContextPtr codec = openVideo(*stream);
    if (!codec)
        return false;
    *codecContext = codec.release();
    return true;
}

bool VideoCapture::initSWScale(AVCodecContext* codecContext, SwsContext** sws, AVFrame** frame,
                               AVFrame** scaled, AVPacket** packet)
{
    int width = codecContext->width;
    int height = codecContext->height;
    if (width > kMaxWidth) {
        height = int(float(height) * (float(kMaxWidth) / float(width)));
        width = kMaxWidth;
    }
    SwsContextPtr scaler = makeScaler({codecContext->pix_fmt, codecContext->width, codecContext->height},
                                      {AV_PIX_FMT_RGB24, width, height}, SWS_BILINEAR);
    FrameHandle decoded_frame = createFrame();
    FrameHandle scaled_frame = createFrame();
    PacketHandle read_packet = createPacket();
    if (!scaler || !decoded_frame || !scaled_frame || !read_packet)
        return false;
    scaled_frame->width = width;
    scaled_frame->height = height;
    scaled_frame->format = AV_PIX_FMT_RGB24;
    if (av_frame_get_buffer(scaled_frame.get(), 4) < 0)
        return false;
    *sws = scaler.release();
    *frame = decoded_frame.release();
    *scaled = scaled_frame.release();
    *packet = read_packet.release();
    return true;
}

bool VideoCapture::initFilter(AVCodecContext* codecContext, AVStream* stream, AVFilterGraph** graph,
                              AVFilterContext** source, AVFilterContext** sink, int rotation)
{
    FilterGraphPtr filters(avfilter_graph_alloc());
    if (!filters)
        return false;
    // 0/0, as some files have it, is no fraction.
    const AVRational aspect =
        stream->sample_aspect_ratio.den != 0 ? stream->sample_aspect_ratio : AVRational{0, 1};
    const auto arguments =
        QString::asprintf("video_size=%dx%d:pix_fmt=%d:time_base=%d/%d:pixel_aspect=%d/%d",
                          codecContext->width, codecContext->height, codecContext->pix_fmt,
                          stream->time_base.num, stream->time_base.den, aspect.num, aspect.den)
            .toLatin1();
    AVFilterContext* in = nullptr;
    int code = avfilter_graph_create_filter(&in, avfilter_get_by_name("buffer"), "in", arguments.constData(),
                                            nullptr, filters.get());
    if (code < 0) {
        qCDebug(MultimediaCategoryLogging) << "init filter failed1" << code;
        return false;
    }
    AVFilterContext* out = nullptr;
    code = avfilter_graph_create_filter(&out, avfilter_get_by_name("buffersink"), "out", nullptr, nullptr,
                                        filters.get());
    if (code < 0) {
        qCDebug(MultimediaCategoryLogging) << "init filter failed2" << code;
        return false;
    }
    constexpr std::array<AVPixelFormat, 2> kFormats{AV_PIX_FMT_RGBA, AV_PIX_FMT_NONE};
    if (av_opt_set_int_list(out, "pix_fmts", kFormats.data(), AV_PIX_FMT_NONE, AV_OPT_SEARCH_CHILDREN) < 0) {
        qCDebug(MultimediaCategoryLogging, "av_opt_set_int_list failed");
        return false;
    }
    if (parseGraph(filters.get(), filterText(*codecContext, rotation).constData(), in, out) < 0)
        return false;
    if (avfilter_graph_config(filters.get(), nullptr) < 0) {
        qCDebug(MultimediaCategoryLogging, "avfilter_graph_config failed");
        return false;
    }
    *graph = filters.release();
    *source = in;
    *sink = out;
    return true;
}

bool VideoCapture::decodeFirstFrame(AVFormatContext* context, int videoIndex, const QString& image,
                                    QSize& size)
{
    MediaSource source{InputPtr(context)};
    source.select(videoIndex);
    const bool is_made = saveFirstFrame(source, image, size);
    static_cast<void>(source.release().release()); // it stays the caller's
    return is_made;
}

/// What a container says of its pictures is known to be true when one has been decoded.
bool VideoCapture::saveFirstFrame(MediaSource& source, const QString& image, QSize& size)
{
    const FrameHandle frame = createFrame();
    if (!frame || source.openDecoder() < 0)
        return false;
    AVCodecContext* codec = source.codec();
    size = {codec->width, codec->height};
    if (source.decode(*frame) < 0) {
        qCDebug(MultimediaCategoryLogging, "no picture can be decoded");
        return false;
    }
    size = {codec->width, codec->height};
    const int turn = getDisplayMatrix(source.stream());
    AVFilterGraph* graph = nullptr;
    AVFilterContext* in = nullptr;
    AVFilterContext* out = nullptr;
    if (!initFilter(codec, source.stream(), &graph, &in, &out, turn))
        return false;
    const FilterGraphPtr graph_owner(graph);
    if (swapsSides(turn))
        size.transpose();
    return av_buffersrc_add_frame(in, frame.get()) == 0 && av_buffersink_get_frame(out, frame.get()) >= 0 &&
           toRGB24(frame.get(), frame->width, frame->height, image);
}

bool VideoCapture::toRGB24(AVFrame* frame, int width, int height, const QString& image)
{
    return saveImage({frame->data[0], width, height, frame->linesize[0], QImage::Format_RGBA8888}, image);
}
