#include "multimedia/videopreviewthread/videopreviewthread.h"

#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/mediasource.h"
#include "multimedia/base/rotation.h"
#include "multimedia/base/warning.h"
#include "multimedia/ffmpeghandler/ffmpeghandler.h"
#include "multimedia/videoeditor/videoeditor.h"

extern "C" {
#include <libavutil/imgutils.h>
}

#include <QtCore/QLoggingCategory>
#include <QtGui/QTransform>

#include <cmath>

using namespace multimedia;

namespace {
/// The converters write whole vectors, in the last row beyond its end, too; where a row is too short for that
/// they leave out its last columns.
constexpr int kRowAlignment = 64;
constexpr size_t kTailBytes = 64;

int firstStream(const AVFormatContext& context, AVMediaType type)
{
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        if (context.streams[i]->codecpar->codec_type == type)
            return int(i);
    }
    return -1;
}

/// Size of a thumbnail for a box. A source of unknown size, (-1, -1), gives a square of the box's width.
QSize thumbnailSize(const QSize& source, const QSize& box)
{
    const auto [w, h] = std::pair<qint64, qint64>(source.width(), source.height());
    const auto [tw, th] = std::pair<qint64, qint64>(box.width(), box.height());
    if (w > h)
        return w / tw > h / th ? QSize(int(tw), int(h * tw / w)) : QSize(int(w * th / h), int(th));
    return w / th > h / tw ? QSize(int(th), int(h)) : QSize(int(w * tw / h), int(tw));
}
} // namespace

VideoPreviewThread::VideoPreviewThread()
    : m_handler(std::make_unique<FfmpegHandler>())
{}

VideoPreviewThread::~VideoPreviewThread()
{
    cancel();
    wait();
}

bool VideoPreviewThread::load(const QString& file)
{
    m_running = true;
    m_handler->close();
    m_handler->videoStreamIndex = m_handler->audioStreamIndex = m_handler->subtitleStreamIndex = -1;
    VideoEditor::instance()->changeVideoInformation([](VideoFacts& facts) {
        facts.valid = false;
        facts.streamCount = facts.audioStreamCount = facts.videoStreamCount = 0;
    });
    if (!openFile(file) || !openVideo() || !openAudio() || !makeConverter())
        return false;
    m_handler->subtitleStreamIndex = firstStream(*m_handler->formatContext, AVMEDIA_TYPE_SUBTITLE);
    m_previewPath = file;
    return true;
}

bool VideoPreviewThread::close()
{
    m_handler->close();
    return true;
}

AVCodecContext* VideoPreviewThread::getAVCodecContext() const
{
    return m_handler->videoCodecContext.get();
}

bool VideoPreviewThread::openFile(const QString& file)
{
    MediaSource source;
    SourceOptions options;
    options.cancelled = {isCancelled, this};
    if (source.open(file.toStdString(), options) < 0) {
        qCDebug(MultimediaCategoryLogging, "video editor load video file:%s failed", qUtf8Printable(file));
        return false;
    }
    if (source.findStreams() < 0) {
        qCDebug(MultimediaCategoryLogging, "couldn't find stream information.");
        return false;
    }
    source.limitTime({});
    const int64_t duration_ms = source.duration();
    m_handler->formatContext = source.release();
    VideoEditor::instance()->changeVideoInformation(
        [duration_ms](VideoFacts& facts) { facts.duration = duration_ms; });
    if (duration_ms < 1)
        return false;
    countStreams();
    return true;
}

void VideoPreviewThread::countStreams()
{
    const AVFormatContext& context = *m_handler->formatContext;
    int videos = 0;
    int audios = 0;
    for (unsigned i = 0; i < context.nb_streams; ++i) {
        const AVMediaType type = context.streams[i]->codecpar->codec_type;
        if (type == AVMEDIA_TYPE_AUDIO) {
            ++audios;
        } else if (type == AVMEDIA_TYPE_VIDEO) {
            ++videos;
            m_handler->videoStreamIndex = int(i);
        }
    }
    VideoEditor::instance()->changeVideoInformation([&](VideoFacts& facts) {
        facts.audioStreamCount += audios;
        facts.videoStreamCount += videos;
        facts.streamCount += int(context.nb_streams);
    });
}

bool VideoPreviewThread::openVideo()
{
    if (m_handler->videoStreamIndex == -1) {
        qCDebug(MultimediaCategoryLogging, "didn't find a video stream.");
        return false;
    }
    AVStream* stream = m_handler->formatContext->streams[m_handler->videoStreamIndex];
    m_handler->videoCodec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (!m_handler->videoCodec) {
        qCDebug(MultimediaCategoryLogging, "video codec not found.");
        return false;
    }
    if (MediaSource::makeDecoder(m_handler->videoCodecContext, *stream) < 0 ||
        m_handler->videoCodecContext->width < 1) {
        qCDebug(MultimediaCategoryLogging, "could not open codec.");
        return false;
    }
    m_handler->videoStream = stream;
    VideoEditor::instance()->changeVideoInformation([stream](VideoFacts& facts) {
        const AVCodecParameters& parameters = *stream->codecpar;
        facts.valid = true;
        facts.hasVideo = true;
        facts.videoCodeID = parameters.codec_id;
        facts.videoWidth = parameters.width;
        facts.videoHeight = parameters.height;
        facts.videoFormat = parameters.format;
        facts.videoBitrate = int(parameters.bit_rate);
        facts.videoFps = stream->avg_frame_rate.den == 0 ? 0 : int(av_q2d(stream->avg_frame_rate));
    });
    return true;
}

bool VideoPreviewThread::openAudio()
{
    m_handler->audioStreamIndex = firstStream(*m_handler->formatContext, AVMEDIA_TYPE_AUDIO);
    if (m_handler->audioStreamIndex == -1) {
        qCDebug(MultimediaCategoryLogging, "didn't find a audio stream.");
        VideoEditor::instance()->changeVideoInformation([](VideoFacts& facts) { facts.hasAudio = false; });
        return true;
    }
    AVStream* stream = m_handler->formatContext->streams[m_handler->audioStreamIndex];
    m_handler->audioCodec = avcodec_find_decoder(stream->codecpar->codec_id);
    if (!m_handler->audioCodec) {
        qCDebug(MultimediaCategoryLogging, "didn't find audio decodec.");
        return false;
    }
    if (MediaSource::makeDecoder(m_handler->audioCodecContext, *stream) < 0) {
        qCDebug(MultimediaCategoryLogging, "avcodec_open2 audio decodec failed.");
        return false;
    }
    m_handler->audioStream = stream;
    VideoEditor::instance()->changeVideoInformation([stream](VideoFacts& facts) {
        const AVCodecParameters& parameters = *stream->codecpar;
        facts.hasAudio = true;
        facts.audioChannels = channelCount(parameters);
        facts.audioCannelLayout = int(channelMask(parameters));
        facts.audioCodecID = parameters.codec_id;
        facts.audioSampleRate = parameters.sample_rate;
        facts.audioSampleSize = parameters.frame_size;
        facts.audioSampleFormat = parameters.format;
        facts.audioBitRate = int(parameters.bit_rate);
    });
    return true;
}

bool VideoPreviewThread::makeConverter()
{
    const AVCodecContext& codec = *m_handler->videoCodecContext;
    const int bytes = av_image_get_buffer_size(AV_PIX_FMT_BGRA, codec.width, codec.height, kRowAlignment);
    m_handler->videoFrame = createFrame();
    m_handler->rgbFrame = createFrame();
    m_handler->rgbBuffer.reset(bytes > 0 ? static_cast<uint8_t*>(av_malloc(size_t(bytes) + kTailBytes))
                                         : nullptr);
    if (!m_handler->videoFrame || !m_handler->rgbFrame || !m_handler->rgbBuffer) {
        qCDebug(MultimediaCategoryLogging, "could not allocate frame data.");
        return false;
    }
    av_image_fill_arrays(m_handler->rgbFrame->data, m_handler->rgbFrame->linesize, m_handler->rgbBuffer.get(),
                         AV_PIX_FMT_BGRA, codec.width, codec.height, kRowAlignment);
    m_pictureSize = {codec.width, codec.height};
    return true;
}

void VideoPreviewThread::run()
{
    m_grabIndex = 0;
    fastPreview();
    m_handler->close();
}

void VideoPreviewThread::fastPreview()
{
    VideoEditor* editor = VideoEditor::instance();
    const double duration_s = editor->getVideoInformation(VideoEditor::VideoInfo_Duration) * 0.001;
    const auto times = getVideoCaptureFrameIndex(duration_s, editor->m_totalGrabCount);
    const auto turn = rotation();
    for (const double time : times) {
        if (!m_running || !getVideoFrameByTime(time))
            break;
        readMetaInfo();
        if (!convertPicture())
            break;
        editor->grabImageFrame(thumbnail(turn), m_grabIndex++, pictureTime(),
                               isKeyFrame(*m_handler->videoFrame));
    }
    editor->changeVideoInformation([](VideoFacts& facts) {
        if (facts.videoRotate != 0)
            std::swap(facts.videoWidth, facts.videoHeight);
    });
    editor->setIdle();
    m_running = false;
}

QList<double> VideoPreviewThread::getVideoCaptureFrameIndex(double duration, int count) const
{
    QList<double> times;
    const double step = duration / (count - 1);
    for (int i = 0; i < count; ++i)
        times += i * step;
    return times;
}

AVFrame* VideoPreviewThread::getVideoFrameByTime(double seconds)
{
    AVFormatContext* context = m_handler->formatContext.get();
    if (!context || !m_handler->videoFrame)
        return nullptr;
    const int64_t time_us = std::isfinite(seconds) ? int64_t(seconds * AV_TIME_BASE) : INT64_MIN;
    if (av_seek_frame(context, -1, time_us, AVSEEK_FLAG_BACKWARD) < 0)
        return nullptr;
    avcodec_flush_buffers(m_handler->videoCodecContext.get());
    const PacketHandle packet = createPacket();
    for (; packet && av_read_frame(context, packet.get()) >= 0; av_packet_unref(packet.get())) {
        if (packet->stream_index == m_handler->videoStreamIndex && decode(*packet))
            return m_handler->videoFrame.get();
    }
    return nullptr;
}

/// A key frame is asked for at once: a decoder that reorders would want the pictures behind it first. If that
/// gives nothing, the packet begins a picture that needs them.
bool VideoPreviewThread::decode(const AVPacket& packet)
{
    AVCodecContext* codec = m_handler->videoCodecContext.get();
    if (avcodec_send_packet(codec, &packet) != 0)
        return false;
    if (receivePicture())
        return true;
    if (!(packet.flags & AV_PKT_FLAG_KEY))
        return false;
    avcodec_send_packet(codec, nullptr);
    if (receivePicture())
        return true;
    avcodec_flush_buffers(codec);
    return avcodec_send_packet(codec, &packet) == 0 && receivePicture();
}

bool VideoPreviewThread::receivePicture()
{
    return avcodec_receive_frame(m_handler->videoCodecContext.get(), m_handler->videoFrame.get()) == 0;
}

void VideoPreviewThread::readMetaInfo()
{
    if (const auto turn = rotation())
        VideoEditor::instance()->changeVideoInformation(
            [turn](VideoFacts& facts) { facts.videoRotate = *turn; });
}

std::optional<int> VideoPreviewThread::rotation() const
{
    return m_handler->videoFrame ? rotateTag(*m_handler->videoStream) : std::nullopt;
}

bool VideoPreviewThread::convertPicture()
{
    // Pictures may change their size in the middle of a file; the converted ones do not.
    const AVFrame& picture = *m_handler->videoFrame;
    const PictureFormat from{AVPixelFormat(picture.format), picture.width, picture.height};
    if (!m_handler->swsContext || !(from == m_converted)) {
        m_handler->swsContext =
            makeScaler(from, {AV_PIX_FMT_BGRA, m_pictureSize.width(), m_pictureSize.height()}, SWS_BICUBIC);
        m_converted = from;
    }
    if (!m_handler->swsContext) {
        qCDebug(MultimediaCategoryLogging, "could not convert picture.");
        return false;
    }
    sws_scale(m_handler->swsContext.get(), picture.data, picture.linesize, 0, picture.height,
              m_handler->rgbFrame->data, m_handler->rgbFrame->linesize);
    return true;
}

QImage VideoPreviewThread::thumbnail(std::optional<int> turn) const
{
    QImage image(m_handler->rgbBuffer.get(), m_pictureSize.width(), m_pictureSize.height(),
                 m_handler->rgbFrame->linesize[0], QImage::Format_RGB32);
    QSize shown_size(-1, -1);
    if (turn) {
        image = image.transformed(QTransform().rotate(*turn, Qt::ZAxis), Qt::FastTransformation);
        shown_size = *turn % 180 == 0 ? m_pictureSize : m_pictureSize.transposed();
    }
    return image.scaled(thumbnailSize(shown_size, VideoEditor::instance()->getSize()), Qt::IgnoreAspectRatio,
                        Qt::FastTransformation);
}

double VideoPreviewThread::pictureTime() const
{
    const AVFrame& picture = *m_handler->videoFrame;
    int64_t pts = picture.pts != AV_NOPTS_VALUE ? picture.pts : picture.best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE)
        pts = 0;
    return double(pts) * av_q2d(m_handler->videoStream->time_base) * 1000.0;
}

void VideoPreviewThread::cancel()
{
    m_running = false;
}

int VideoPreviewThread::isCancelled(void* thread)
{
    return !static_cast<VideoPreviewThread*>(thread)->m_running;
}
