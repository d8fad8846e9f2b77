#include "multimedia/gifhandler/compressgif.h"

#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/mediahandle.h"
#include "multimedia/base/warning.h"
#include "multimedia/gifhandler/gifstructure.h"
#include "multimedia/mediahandler/cmediascale.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <QtCore/QDebug>
#include <QtCore/QFileInfo>
#include <QtCore/QLoggingCategory>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>

using namespace multimedia;

namespace {

/// Of one picture: FFmpeg's GIF decoder keeps about three of them, at four bytes a pixel.
constexpr int64_t kMaxGifPixels = 36'000'000;
/// Of all pictures together: some minutes of work. 640x360 reaches it after four hours of 15 frames a second.
constexpr int64_t kMaxTotalPixels = 50'000'000'000;
/// Of one picture as it lies in the file.
constexpr int64_t kMaxFrameBytes = 64LL << 20;

/// Delays of a GIF are in hundredths of a second.
constexpr AVRational kGifTimeBase = {1, 100};

bool isSameFile(const QString& first, const QString& second)
{
    std::error_code error;
    return std::filesystem::equivalent(first.toStdString(), second.toStdString(), error);
}

/// The muxer that the suffix asks for; null if there is none that writes a single file.
const AVOutputFormat* muxerFor(const QString& path)
{
    const QByteArray name = "file." + QFileInfo(path).suffix().toUtf8();
    const AVOutputFormat* muxer = av_guess_format(nullptr, name.constData(), nullptr);
    return muxer && !(muxer->flags & AVFMT_NOFILE) ? muxer : nullptr;
}

} // namespace

struct CompressGif::Conversion
{
    CMediaScale scaler;
    PacketHandle packet = createPacket();
    FrameHandle decoded = createFrame();
    FrameHandle scaled = createFrame();
    int64_t frame_count = 0;
};

CompressGif::CompressGif() = default;

CompressGif::~CompressGif() = default;

void CompressGif::cancelCompress()
{
    cancelled = true;
}

bool CompressGif::isCancelled() const
{
    return cancelled || request->cancelled;
}

bool CompressGif::doCompressGif(GifHandlerContextPtr gifHandlerCtxPtr)
{
    cancelled = false;
    request = gifHandlerCtxPtr;
    const bool result = run(*request);
    clear();
    request.reset();
    if (!gifHandlerCtxPtr->sync)
        Q_EMIT compressResult(result);
    return result;
}

bool CompressGif::run(const GifHandlerContext& context)
{
    if (!initInput(context.srcFilePath))
        return false;
    if (isCancelled())
        return true;
    if (!openInputCodec())
        return false;
    if (isCancelled())
        return true;
    if (!initOutput(context.destFilePath))
        return false;
    if (isCancelled())
        return true;
    if (!openOutCodec(context))
        return false;
    if (isCancelled())
        return true;
    return reEncode();
}

bool CompressGif::initInput(const QString& path)
{
    input = std::make_unique<Input>();
    input->path = path;
    MediaSource& source = input->source;
    SourceOptions options;
    options.max_pixels = kMaxGifPixels;
    if (source.open(path.toStdString(), options) < 0) {
        qWarning() << "open input failure" << path;
        return false;
    }
    if (!isSound(*source.format(), path))
        return false;
    if (source.findStreams() < 0) {
        qWarning() << "find stream info failure" << path;
        return false;
    }
    if (source.select(AVMEDIA_TYPE_VIDEO) == AVERROR_STREAM_NOT_FOUND) {
        qWarning() << "no video stream found";
        return false;
    }
    source.limitTime({}); // whoever waits may cancel
    return true;
}

/// Before anything of the pictures is read. Only GIF tells how many there are, and what they take.
bool CompressGif::isSound(const AVFormatContext& format, const QString& path) const
{
    if (std::strcmp(format.iformat->name, "gif") != 0)
        return true;
    const GifStructure structure = readGifStructure(path.toStdString());
    if (!structure.isComplete || structure.frameCount == 0) {
        qWarning() << "truncated input" << path;
        return false;
    }
    const AVCodecParameters& screen = *format.streams[0]->codecpar;
    const int64_t pixels = int64_t(screen.width) * screen.height;
    if (pixels > kMaxGifPixels || structure.frameCount > kMaxTotalPixels / std::max<int64_t>(pixels, 1) ||
        structure.largestFrameBytes > kMaxFrameBytes) {
        qWarning() << "input too large" << path << screen.width << screen.height << structure.frameCount;
        return false;
    }
    return true;
}

bool CompressGif::openInputCodec()
{
    MediaSource& source = input->source;
    const AVFormatContext& format = *source.format();
    for (int i = int(format.nb_streams) - 1; i >= 0; --i) {
        if (format.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO)
            source.select(i);
    }
    const int code = source.openDecoder();
    if (code < 0) {
        qWarning() << (code == AVERROR_DECODER_NOT_FOUND ? "could not find the decoder"
                                                         : "open codec failure");
        return false;
    }
    const AVCodecParameters& parameters = *source.stream()->codecpar;
    input->picture = {AVPixelFormat(parameters.format), parameters.width, parameters.height};
    return true;
}

bool CompressGif::initOutput(const QString& path)
{
    output = std::make_unique<Output>(path);
    AVFormatContext* context = nullptr;
    const AVOutputFormat* muxer = muxerFor(path);
    if (muxer)
        avformat_alloc_output_context2(&context, muxer, nullptr, nullptr);
    output->format.reset(context);
    if (!context) {
        qWarning() << "allocate output format failure" << path;
        return false;
    }
    return true;
}

bool CompressGif::openOutCodec(const GifHandlerContext& context)
{
    const AVCodec* codec = avcodec_find_encoder(context.transcodeToMP4 ? AV_CODEC_ID_H264 : AV_CODEC_ID_GIF);
    if (!codec) {
        qWarning() << "find encoder failure";
        return false;
    }
    AVStream* stream = avformat_new_stream(output->format.get(), nullptr);
    output->encoder.reset(avcodec_alloc_context3(codec));
    AVCodecContext* encoder = output->encoder.get();
    if (!stream || !encoder) {
        qWarning() << "open output codec failure";
        return false;
    }
    const QSize size = outputSize(context);
    encoder->codec_id = codec->id;
    encoder->codec_type = AVMEDIA_TYPE_VIDEO;
    encoder->width = size.width();
    encoder->height = size.height();
    encoder->max_pixels = kMaxGifPixels;
    const AVPixelFormat* formats = pixelFormats(*codec);
    encoder->pix_fmt = formats ? formats[0] : AV_PIX_FMT_NONE;
    encoder->time_base = sourceStream()->time_base; // a GIF's codec has no clock of its own
    if (context.transcodeToMP4) {
        encoder->framerate = sourceStream()->r_frame_rate;
        encoder->gop_size = input->source.codec()->gop_size;
        encoder->refs = input->source.codec()->refs;
        // Reordered pictures at uneven distances leave the track shorter than what it shows.
        encoder->max_b_frames = 0;
    }
    stream->time_base = sourceStream()->time_base;
    if (avcodec_parameters_from_context(stream->codecpar, encoder) < 0 ||
        avcodec_open2(encoder, codec, nullptr) < 0) {
        qWarning() << "open output codec failure";
        return false;
    }
    if (!openOutputFile())
        return false;
    output->picture = {encoder->pix_fmt, encoder->width, encoder->height};
    return true;
}

QSize CompressGif::outputSize(const GifHandlerContext& context) const
{
    const QSize source(input->picture.width, input->picture.height);
    QSize size = source;
    if (context.targetSize.width() > 0 && context.targetSize.height() > 0)
        size = context.targetSize;
    if (context.compressLevel == kGifCompressHalf) {
        const QSize half(qRound(source.width() * 0.5), qRound(source.height() * 0.5));
        if (half.width() < size.width() || half.height() < size.height())
            size = half;
    }
    size = checkSize(size, source);
    // The encoder's pixels share their colour two by two, and it refuses half a pair.
    if (context.transcodeToMP4)
        size = {std::max(size.width() & ~1, 2), std::max(size.height() & ~1, 2)};
    return size;
}

QSize CompressGif::checkSize(const QSize& size, const QSize& sourceSize)
{
    if (size.width() >= sourceSize.width() && size.height() >= sourceSize.height())
        return size;
    const double ratio = double(size.width()) / size.height();
    const double source_ratio = double(sourceSize.width()) / sourceSize.height();
    if (qFuzzyCompare(ratio, source_ratio))
        return size;
    if (ratio > 1.0)
        return {int(source_ratio * size.height()), size.height()};
    return {size.width(), int(size.width() / source_ratio)};
}

bool CompressGif::openOutputFile()
{
    if (isSameFile(input->path, output->path)) {
        qWarning() << "open file failure, it is the source" << output->path;
        return false;
    }
    if (output->file.openFor(*output->format) < 0) {
        qWarning() << "open file failure" << output->path;
        return false;
    }
    if (avformat_write_header(output->format.get(), nullptr) < 0) {
        qWarning() << "write header failure" << output->path;
        return false;
    }
    return true;
}

bool CompressGif::reEncode()
{
    Conversion conversion;
    const PictureFormat& from = input->picture;
    const PictureFormat& to = output->picture;
    conversion.scaler.setSrcOpt(from.format, from.width, from.height);
    conversion.scaler.setDestOpt(to.format, to.width, to.height);
    if (!conversion.packet || !conversion.decoded || !conversion.scaled)
        return false;
    conversion.scaled->format = to.format;
    conversion.scaled->width = to.width;
    conversion.scaled->height = to.height;
    if (av_frame_get_buffer(conversion.scaled.get(), 0) < 0)
        return false;

    int code = reEncodeFrames(conversion);
    if (code >= 0)
        code = encodeToPacket(nullptr, conversion.packet.get());
    if (code != AVERROR_EOF)
        qCDebug(MultimediaCategoryLogging) << "reEncode retCode:" << code;
    return finishOutput(code == AVERROR_EOF && conversion.frame_count > 0);
}

/// Until the source ends or the run is cancelled. 0, or the code of the failure that ended it.
int CompressGif::reEncodeFrames(Conversion& conversion)
{
    while (!isCancelled()) {
        const int decoded = input->source.decode(*conversion.decoded);
        if (decoded < 0)
            return decoded == AVERROR_EOF ? 0 : decoded;
        const int encoded = encodeDecoded(conversion);
        if (encoded < 0 && encoded != AVERROR(EAGAIN))
            return encoded;
    }
    return 0;
}

/// A picture that does not scale is dropped.
int CompressGif::encodeDecoded(Conversion& conversion)
{
    const AVFrame* decoded = conversion.decoded.get();
    AVFrame* scaled = conversion.scaled.get();
    const PictureFormat& from = input->picture;
    if (++conversion.frame_count * from.width * from.height > kMaxTotalPixels)
        return AVERROR_INVALIDDATA;
    if (decoded->format != from.format || decoded->width != from.width || decoded->height != from.height)
        return 0;
    // The encoder may still hold the pixels of the picture before.
    if (const int code = av_frame_make_writable(scaled); code < 0)
        return code;
    scaled->pts =
        av_rescale_q(decoded->best_effort_timestamp, sourceStream()->time_base, output->encoder->time_base);
    if (conversion.scaler.scale(decoded->data, decoded->linesize, 0, decoded->height, scaled->data,
                                scaled->linesize) < 0)
        return 0;
    output->lastDuration = frameDuration(*decoded);
    return encodeToPacket(scaled, conversion.packet.get());
}

/// `AVERROR(EAGAIN)` when the frame is dealt with, `AVERROR_EOF` when a null frame has flushed the encoder.
int CompressGif::encodeToPacket(const AVFrame* frame, AVPacket* packet)
{
    AVCodecContext* encoder = output->encoder.get();
    int code = avcodec_send_frame(encoder, frame);
    while (code >= 0 && !isCancelled()) {
        code = avcodec_receive_packet(encoder, packet);
        if (code < 0)
            break;
        av_packet_rescale_ts(packet, encoder->time_base, targetStream()->time_base);
        // Which packet is the last is not known here, and a muxer looks at the duration of no other.
        packet->duration =
            av_rescale_q(output->lastDuration, sourceStream()->time_base, targetStream()->time_base);
        code = av_interleaved_write_frame(output->format.get(), packet);
        av_packet_unref(packet);
    }
    return code;
}

/// False if not everything has reached the file, which takes its place otherwise.
/// Keeps the file only when it is whole.
bool CompressGif::finishOutput(bool is_whole)
{
    AVFormatContext* format = output->format.get();
    // Only GIF has the option: it would give the last picture the delay of the one before.
    av_opt_set_int(format, "final_delay",
                   av_rescale_q(output->lastDuration, sourceStream()->time_base, kGifTimeBase),
                   AV_OPT_SEARCH_CHILDREN);
    // Of what nobody will see, too: the GIF muxer frees its last packet nowhere else.
    int code = av_write_trailer(format);
    if (!is_whole)
        return false;
    if (code >= 0)
        code = output->file.commit(*format);
    if (code < 0)
        qWarning() << "write trailer failure" << output->path;
    return code >= 0;
}

void CompressGif::clear()
{
    output.reset();
    input.reset();
}
