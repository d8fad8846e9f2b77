#include "multimedia/videocapture/videocapture.h"

#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/filtergraph.h"
#include "multimedia/base/mediahandle.h"
#include "multimedia/base/openinput.h"
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

struct Source
{
    InputPtr input;
    int video_index = -1;

    AVStream* stream() const { return input->streams[video_index]; }
};

bool open(Source& source, const QByteArray& path)
{
    AVFormatContext* context = nullptr;
    if (!VideoCapture::instance()->initFormat(&context, &source.video_index, path.constData()))
        return false;
    source.input.reset(context);
    return true;
}

CodecContextPtr openVideo(const AVStream& stream)
{
    CodecContextPtr codec = openDecoder(stream);
    if (!codec)
        qCDebug(MultimediaCategoryLogging, "could not open decoder of %s",
                avcodec_get_name(stream.codecpar->codec_id));
    return codec;
}

bool hasDecoder(const Source& source)
{
    return avcodec_find_decoder(source.stream()->codecpar->codec_id) != nullptr;
}

/// Opens a file that is trusted to be a video.
bool openTrusted(Source& source, const QString& path, long long& duration, QString& format)
{
    if (!open(source, path.toUtf8()))
        return false;
    if ((source.stream()->disposition & AV_DISPOSITION_ATTACHED_PIC) ||
        source.input->probe_score < kTrustedProbeScore || !hasDecoder(source)) {
        qCDebug(MultimediaCategoryLogging) << "not a video:" << path;
        return false;
    }
    duration = source.input->duration / 1000;
    format = QString::fromUtf8(source.input->iformat->extensions).split(QLatin1Char(',')).first();
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

/// The decoder's next picture, in `frame`.
bool decodeNext(AVFormatContext* context, int video_index, AVCodecContext* codec, AVPacket* packet,
                AVFrame* frame)
{
    for (;;) {
        av_packet_unref(packet);
        if (av_read_frame(context, packet) < 0)
            return false;
        if (packet->stream_index != video_index)
            continue;
        const int code = avcodec_send_packet(codec, packet);
        if (code == AVERROR_INVALIDDATA)
            continue;
        if (code != 0)
            return false;
        if (avcodec_receive_frame(codec, frame) == 0)
            return true;
    }
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
    Source source;
    if (!openTrusted(source, path, duration, format))
        return false;
    const auto file = QStringLiteral("%1/%2%3").arg(m_tempPath, Util::uuid(), QLatin1String(".jpg"));
    if (decodeFirstFrame(source.input.get(), source.video_index, file, size))
        image = file;
    return true;
}

bool VideoCapture::syncDecodeFormat(const QString& path, long long& duration, QString& format, QSize& size)
{
    Source source;
    if (!openTrusted(source, path, duration, format))
        return false;
    if (const CodecContextPtr codec = openVideo(*source.stream()))
        size = shownSize(*codec, *source.stream());
    return true;
}

bool VideoCapture::syncDecodeCapture(const QString& path, const QString& image)
{
    Source source;
    QSize size;
    return open(source, path.toUtf8()) && hasDecoder(source) &&
           decodeFirstFrame(source.input.get(), source.video_index, image, size);
}

bool VideoCapture::captureFirstFrame(const char* path, const QString& image)
{
    Source source;
    QSize size;
    return open(source, path) && decodeFirstFrame(source.input.get(), source.video_index, image, size);
}

QSize VideoCapture::videoSourceSize(const QString& path)
{
    Source source;
    if (!open(source, path.toUtf8()))
        return kUnknownSize;
    const CodecContextPtr codec = openVideo(*source.stream());
    return codec ? shownSize(*codec, *source.stream()) : kUnknownSize;
}

int VideoCapture::rotation(const QString& path)
{
    Source source;
    if (!open(source, path.toUtf8()))
        return 0;
    const AVDictionaryEntry* entry = av_dict_get(source.input->metadata, "rotation", nullptr, 0);
    return entry ? int(std::strtol(entry->value, nullptr, 10)) : 0;
}

int VideoCapture::getDisplayMatrix(AVStream* stream)
{
    const double turn = displayTurn(*stream).value_or(0);
    return int(turn - 360 * std::floor(turn / 360 + 0.0025));
}

bool VideoCapture::initFormat(AVFormatContext** context, int* videoIndex, const char* path)
{
    InputPtr input;
    int code = openInput(input, path);
    if (code >= 0)
        code = avformat_find_stream_info(input.get(), nullptr);
    if (code >= 0)
        code = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (code < 0) {
        qCDebug(MultimediaCategoryLogging, "no video in %s: %s", path, ffmpegErrorString(code).c_str());
        return false;
    }
    *videoIndex = code;
    *context = input.release();
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
    SwsContextPtr scaler(sws_getContext(codecContext->width, codecContext->height, codecContext->pix_fmt,
                                        width, height, AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr, nullptr,
                                        nullptr));
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
    const auto arguments = QString::asprintf("video_size=%dx%d:pix_fmt=%d:time_base=%d/%d:pixel_aspect=%d/%d",
                                             codecContext->width, codecContext->height, codecContext->pix_fmt,
                                             stream->time_base.num, stream->time_base.den,
                                             stream->sample_aspect_ratio.num, stream->sample_aspect_ratio.den)
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
    AVStream* stream = context->streams[videoIndex];
    const CodecContextPtr codec = openVideo(*stream);
    SwsContext* sws = nullptr;
    AVFrame* frame = nullptr;
    AVFrame* scaled = nullptr;
    AVPacket* packet = nullptr;
    if (!codec || !initSWScale(codec.get(), &sws, &frame, &scaled, &packet))
        return false;
    const SwsContextPtr sws_owner(sws);
    const FrameHandle frame_owner(frame, destroyFrame);
    const FrameHandle scaled_owner(scaled, destroyFrame);
    const PacketHandle packet_owner(packet, destroyPacket);

    size = {codec->width, codec->height};
    const int turn = getDisplayMatrix(stream);
    AVFilterGraph* graph = nullptr;
    AVFilterContext* source = nullptr;
    AVFilterContext* sink = nullptr;
    if (!initFilter(codec.get(), stream, &graph, &source, &sink, turn))
        return false;
    const FilterGraphPtr graph_owner(graph);
    if (swapsSides(turn))
        size.transpose();

    return decodeNext(context, videoIndex, codec.get(), packet, frame) &&
           av_buffersrc_add_frame(source, frame) == 0 && av_buffersink_get_frame(sink, frame) >= 0 &&
           toRGB24(frame, frame->width, frame->height, image);
}

bool VideoCapture::toRGB24(AVFrame* frame, int width, int height, const QString& image)
{
    return QImage(frame->data[0], width, height, frame->linesize[0], QImage::Format_RGBA8888).save(image);
}
