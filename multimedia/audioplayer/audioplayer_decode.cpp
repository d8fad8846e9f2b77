#include "multimedia/audioplayer/audioplayer_p.h"
#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/warning.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

#include <QtCore/QDateTime>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QStringList>

#include <algorithm>

namespace {
constexpr qint64 kPollUs = 10'000; ///< how late a request may be seen during a pause of the loop
constexpr std::chrono::seconds kRetryPause(1);
constexpr std::chrono::milliseconds kBusyPause(20);
constexpr int64_t kNearEndMs = 1000;
/// One packet of a slower source becomes minutes of output, in a single frame of any size.
constexpr int kLowestRateHz = 1000;
constexpr int kLongFrameMs = 49; ///< a longer frame is reported on its own
constexpr int kFramesPerProgress = 3;

/// The left channel of a frame of 16-bit stereo, as decimal numbers.
QStringList sampleTexts(const AVFrame& frame, const std::atomic<bool>& running)
{
    const auto* values = reinterpret_cast<const int16_t*>(frame.data[0]);
    const int total = frame.nb_samples * multimedia::channelCount(frame);
    QStringList texts;
    texts.reserve(total / 2);
    for (int i = 0; i < total && running; i += 2)
        texts.append(QString::number(values[i]));
    return texts;
}
} // namespace

qint64 toMs(AVRational time_base, int64_t time)
{
    constexpr double kLongestMs = 1e15;
    const double ms = av_q2d(time_base) * static_cast<double>(time) * 1000;
    return static_cast<qint64>(std::clamp(ms, -kLongestMs, kLongestMs));
}

bool AudioPlayer::readyDecoder(const QString& path)
{
    if (m_isHttp)
        setIsUnderload(true);
    Media& media = *m_media;
    if (!initFormat(media.format, media.stream_index, path.toUtf8(), {interrupt_callback, nullptr})) {
        releaseAV();
        if (m_isHttp)
            setIsUnderload(false);
        return false;
    }
    if (m_durationHint != 0 && m_isHttp &&
        media.format->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE)
        media.format->duration = m_durationHint * 1000;
    sendAudioEvent(EventDuration,
                   {{QStringLiteral("Duration"), static_cast<qlonglong>(media.format->duration / 1000)}});

    media.frame = multimedia::createFrame();
    media.packet = multimedia::createPacket();
    if (!initDecoder(media.stream()) || !media.frame || !media.packet || !initFilter() || !m_running) {
        releaseAV();
        return false;
    }
    return true;
}

bool AudioPlayer::initDecoder(AVStream* stream)
{
    const AVCodec* decoder = avcodec_find_decoder(stream->codecpar->codec_id);
    multimedia::CodecContextPtr& codec = m_media->codec;
    codec.reset(decoder ? avcodec_alloc_context3(decoder) : nullptr);
    if (!codec || avcodec_parameters_to_context(codec.get(), stream->codecpar) < 0)
        return false;
    if (codec->sample_rate < kLowestRateHz)
        return false;
    codec->pkt_timebase = stream->time_base;
    const uint64_t channels = multimedia::channelMask(*codec);
    if (channels != 0)
        multimedia::setChannelMask(*codec, channels);
    return avcodec_open2(codec.get(), decoder, nullptr) >= 0;
}

bool AudioPlayer::decodeAudio()
{
    sendAudioEvent(EventStarted);
    m_frameCount = 0;
    initAudio();
    g_startTime = 0;
    while (m_running) {
        if (leaveIfAsked())
            return true;
        if (m_seekPos >= 0) {
            seek();
            continue;
        }
        const Next next = readPacket();
        if (next == Next::Leave)
            return true;
        if (next == Next::Decode && !decodeReceiveFrame())
            return true;
    }
    return false;
}

AudioPlayer::Next AudioPlayer::readPacket()
{
    Media& media = *m_media;
    av_packet_unref(media.packet.get());
    if (g_startTime == 0)
        g_startTime = QDateTime::currentMSecsSinceEpoch();
    int code = av_read_frame(media.format.get(), media.packet.get());
    if (code < 0)
        return handleReadFailure(code);
    if (!m_running) {
        releaseAV();
        sendAudioEvent(EventFinished);
        return Next::Leave;
    }
    if (m_isUnderload)
        setIsUnderload(false);
    if (leaveIfAsked())
        return Next::Leave;
    if (m_filterDirty)
        return resetFilter() ? Next::Head : failPlay("reset filter failed.");
    if (media.packet->stream_index != media.stream_index)
        return Next::Head;
    code = avcodec_send_packet(media.codec.get(), media.packet.get());
    if (code < 0)
        return m_isHttp ? Next::Head : failPlay("avcodec send packet failed.");
    g_startTime = 0;
    return Next::Decode;
}

AudioPlayer::Next AudioPlayer::handleReadFailure(int code)
{
    if (code == AVERROR_EOF)
        return flushDecoder();
    if (!m_isHttp)
        return m_state == PlayPausing ? flushDecoder() : failPlay("av read frame failed.");
    if (code == AVERROR(EAGAIN) || code == AVERROR_INVALIDDATA) {
        setIsUnderload(true);
        pauseUnlessAsked(kBusyPause);
        return Next::Head;
    }
    if (code == AVERROR_EXIT && m_state != PlayPausing)
        return failPlay("av read frame failed.");
    return retryLater();
}

AudioPlayer::Next AudioPlayer::flushDecoder()
{
    avcodec_send_packet(m_media->codec.get(), nullptr);
    return decodeReceiveFrame() ? Next::Head : Next::Leave;
}

AudioPlayer::Next AudioPlayer::retryLater()
{
    g_startTime = 0;
    AVFormatContext* format = m_media->format.get();
    if (format->duration != 0 && m_playTime >= format->duration / 1000 - kNearEndMs) {
        releaseAV();
        return Next::Leave;
    }
    pauseUnlessAsked(kRetryPause);
    // Otherwise the buffered reader would answer with its last failure for ever.
    format->pb->eof_reached = 0;
    format->pb->error = 0;
    return Next::Head;
}

AudioPlayer::Next AudioPlayer::failPlay(const char* message)
{
    releaseAV();
    sendError(message);
    return Next::Leave;
}

void AudioPlayer::seek()
{
    Media& media = *m_media;
    qint64 position_ms = m_seekPos;
    if (m_isHttp) {
        seekHttp(position_ms);
    } else {
        const int64_t timestamp = av_rescale_q(position_ms, {1, 1000}, media.stream()->time_base);
        const int code =
            av_seek_frame(media.format.get(), media.stream_index, timestamp, AVSEEK_FLAG_BACKWARD);
        if (code < 0)
            multimedia::warning("seek", "error in seek file", code);
    }
    avcodec_flush_buffers(media.codec.get());
    m_seekPos.compare_exchange_strong(position_ms, -1); // a later seek stays
}

void AudioPlayer::seekHttp(qint64 position_ms)
{
    AVFormatContext* format = m_media->format.get();
    const int64_t size = std::max<int64_t>(avio_size(format->pb), 0);
    const int64_t position =
        format->duration > 0 ? av_rescale(size, av_rescale(position_ms, 1000, 1), format->duration) : 0;
    const int code = av_seek_frame(format, m_media->stream_index, position, AVSEEK_FLAG_BYTE);
    if (code < 0)
        multimedia::warning("seekHttp", "error in seek file", code);
    sendAudioEvent(EventProgress, {{QStringLiteral("PlayTime"), position_ms}});
    m_addSeekBase = false;
    m_awaitFirstWrite = true;
    setIsUnderload(true);
}

bool AudioPlayer::decodeReceiveFrame()
{
    Media& media = *m_media;
    AVFrame* frame = media.frame.get();
    while (m_running) {
        const int code = avcodec_receive_frame(media.codec.get(), frame);
        if (code == AVERROR(EAGAIN))
            return true;
        if (code == AVERROR_EOF)
            return finishDecoding();
        if (code < 0) {
            failPlay("avcodec receive frame failed.");
            return false;
        }
        if (leaveIfAsked())
            return false;
        // Not worth finishing when a seek is pending.
        if (m_frameDurationMs > kLongFrameMs && m_seekPos >= 0)
            return true;
        if (av_buffersrc_add_frame(media.buffer_source, frame) < 0) {
            failPlay("av buffersrc add frame failed.");
            return false;
        }
        if (!writeFilteredFrames())
            return false;
    }
    return true;
}

bool AudioPlayer::writeFilteredFrames()
{
    AVFrame* frame = m_media->frame.get();
    while (m_running && av_buffersink_get_frame(m_media->buffer_sink, frame) >= 0) {
        if (m_frameDurationMs == 0)
            m_frameDurationMs = static_cast<int>(qint64{frame->nb_samples} * 1000 / frame->sample_rate);
        if (leaveIfAsked() || !writeFrame(*frame))
            return false;
        sendProgress(*frame);
        av_frame_unref(frame);
    }
    return true;
}

bool AudioPlayer::finishDecoding()
{
    if (leaveIfAsked()) // a pause may have cut the last read short
        return false;
    // The tempo filter still holds some 50 ms back.
    if (av_buffersrc_add_frame(m_media->buffer_source, nullptr) >= 0 && !writeFilteredFrames())
        return false;
    drainOutput();
    releaseAV();
    sendAudioEvent(EventFinished);
    return false;
}

void AudioPlayer::sendProgress(const AVFrame& frame)
{
    if (m_frameDurationMs <= kLongFrameMs && ++m_frameCount % kFramesPerProgress != 0)
        return;
    if (m_running)
        sendAudioEvent(EventProgress, {{QStringLiteral("PlayTime"), static_cast<qlonglong>(m_playTime)},
                                       {QStringLiteral("Samples"), sampleTexts(frame, m_running)}});
}

void AudioPlayer::calcCurrentTime(long long pts)
{
    if (pts == AV_NOPTS_VALUE)
        return;
    qint64 time_ms = toMs(m_media->stream()->time_base, pts);
    if (m_awaitFirstWrite) {
        m_awaitFirstWrite = false;
        if (time_ms < 1000 && m_seekBase > 1000)
            m_addSeekBase = true;
    }
    if (m_addSeekBase)
        time_ms += m_seekBase;
    m_playTime = time_ms;
}

/// How long the packet at hand plays, ms.
qint64 AudioPlayer::packetTime() const
{
    return toMs(m_media->stream()->time_base, m_media->packet->duration);
}

bool AudioPlayer::isLeaving(int state)
{
    return state == PlayStopping || state == PlayPausing || state == PlayBreaking;
}

bool AudioPlayer::leaveIfAsked()
{
    const int state = m_state;
    if (!isLeaving(state))
        return false;
    releaseAV();
    if (state == PlayStopping)
        sendAudioEvent(EventStopped);
    else if (state == PlayPausing)
        sendAudioEvent(EventPaused);
    return true;
}

void AudioPlayer::pauseUnlessAsked(std::chrono::microseconds time) const
{
    const QDeadlineTimer deadline(time, Qt::PreciseTimer);
    while (!deadline.hasExpired() && m_running && !isLeaving(m_state) && m_seekPos < 0)
        QThread::usleep(std::min<qint64>(kPollUs, deadline.remainingTimeNSecs() / 1000));
}

void AudioPlayer::releaseAV()
{
    *m_media = Media();
    m_frameDurationMs = 0;
    m_durationHint = 0;
    m_isUnderload = false;
}
