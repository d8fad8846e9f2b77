#include "multimedia/audioplayer/playback.h"

#include "multimedia/audioplayer/audiosource.h"
#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/warning.h"
#include "quillon/quillonlog.h"

#include <QtCore/QLoggingCategory>
#include <QtCore/QStringList>

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace multimedia {

std::atomic<std::chrono::milliseconds> g_readTimeout{std::chrono::seconds(20)};

namespace {
constexpr std::chrono::seconds kRetryPause(1);
constexpr std::chrono::milliseconds kBusyPause(20);
constexpr int64_t kNearEndMs = 1000;
constexpr int kLongFrameMs = 49; ///< a longer frame is reported on its own
constexpr int kFramesPerProgress = 3;
constexpr int kFailuresLogged = 50;

/// The left channel of a frame of 16-bit stereo, as decimal numbers.
QStringList sampleTexts(const AVFrame& frame)
{
    const auto* values = reinterpret_cast<const int16_t*>(frame.data[0]);
    const int total = frame.nb_samples * channelCount(frame);
    QStringList texts;
    texts.reserve(total / 2);
    std::array<char, 6> text{}; // as long as -32768
    for (int i = 0; i < total; i += 2) {
        const char* end = std::to_chars(text.begin(), text.end(), values[i]).ptr;
        texts.append(QString::fromLatin1(text.data(), static_cast<int>(end - text.data())));
    }
    return texts;
}

/// Milliseconds, truncated; what a damaged file claims is kept within the integers.
qint64 toMs(AVRational time_base, int64_t time)
{
    constexpr double kLongestMs = 1e15;
    const double ms = av_q2d(time_base) * static_cast<double>(time) * 1000;
    return static_cast<qint64>(std::clamp(ms, -kLongestMs, kLongestMs));
}

void logWriteFailure(qint64 size, qint64 written)
{
    const QString text =
        QStringLiteral("decodeReceiveFrame -> m_ioDevice -> write maxDataSize:%1 writeSize:%2")
            .arg(size)
            .arg(written);
    QuillonLog::error(text);
    qCDebug(MultimediaCategoryLogging, "%s", qPrintable(text));
}
} // namespace

Playback::Playback(Source source, Report report)
    : source(std::move(source))
    , is_http(this->source.path.startsWith("http"))
    , report(std::move(report))
    , seek_ms(this->source.start_ms > 0 ? this->source.start_ms : -1)
    , seek_base_ms(is_http ? this->source.start_ms : 0)
    , play_time_ms(std::max<qint64>(this->source.start_ms, 0))
    , speed(this->source.speed)
{}

void Playback::run()
{
    if (readyDecoder())
        decodeAudio();
    else if (!isInterrupted())
        sendError("decode audio failed.");
    releaseAV();
    output.close();
}

template<typename Change>
void Playback::request(Change change)
{
    {
        const std::lock_guard lock(wake_mutex);
        change();
    }
    wake.notify_one();
}

bool Playback::stop()
{
    int playing = PlayPlaying;
    bool stopped = false;
    request([&] { stopped = state.compare_exchange_strong(playing, PlayStopping); });
    return stopped;
}

void Playback::pause()
{
    request([this] {
        if (!isBroken())
            state = PlayPausing;
    });
}

void Playback::breakOff()
{
    request([this] { state = PlayBreaking; });
}

void Playback::seek(qint64 position_ms)
{
    request([this, position_ms] {
        seek_ms = position_ms;
        if (is_http) {
            seek_base_ms = position_ms;
            play_time_ms = position_ms;
        }
    });
}

void Playback::setSpeed(double new_speed)
{
    speed = new_speed;
    filter_dirty = true;
}

template<typename Asked>
void Playback::waitUnless(Asked asked, std::chrono::microseconds time)
{
    std::unique_lock lock(wake_mutex);
    wake.wait_for(lock, time, asked);
}

void Playback::waitUnlessAsked(std::chrono::microseconds time)
{
    waitUnless([this] { return state != PlayPlaying || seek_ms >= 0; }, time);
}

/// FFmpeg's hook of the reads, on the thread that reads: whether to abort.
int Playback::interrupt_callback(void* self)
{
    auto* playback = static_cast<Playback*>(self);
    if (playback->isInterrupted())
        return 1;
    if (!playback->read_deadline.hasExpired())
        return 0;
    playback->read_deadline = QDeadlineTimer(QDeadlineTimer::Forever);
    return 1;
}

bool Playback::readyDecoder()
{
    if (is_http)
        setIsUnderload(true);
    MediaSource opened;
    if (!openSound(opened, source.path, {interrupt_callback, this})) {
        releaseAV();
        if (is_http)
            setIsUnderload(false);
        return false;
    }
    AVFormatContext& input = *opened.format();
    if (source.duration_hint_ms != 0 && is_http &&
        input.duration_estimation_method == AVFMT_DURATION_FROM_BITRATE)
        input.duration = source.duration_hint_ms * 1000;
    send(EventDuration, {{QStringLiteral("Duration"), qlonglong(opened.duration())}});
    stream_index = opened.streamIndex();
    format = opened.release();

    frame = createFrame();
    packet = createPacket();
    return initDecoder() && frame && packet && initFilter() && !isBroken();
}

bool Playback::initDecoder()
{
    if (MediaSource::makeDecoder(codec, *stream()) < 0 || codec->sample_rate < MediaSource::kLowestRate)
        return false;
    const uint64_t channels = channelMask(*codec);
    if (channels != 0)
        setChannelMask(*codec, channels);
    return true;
}

bool Playback::initFilter()
{
    filter_dirty = false; // before the speed is read
    return filter.open(*codec, stream()->time_base, speed);
}

void Playback::decodeAudio()
{
    send(EventStarted);
    output.initAudio();
    while (!isBroken() && !leaveIfAsked()) {
        if (seek_ms >= 0) {
            seekNow();
            continue;
        }
        const Next next = readPacket();
        if (next == Next::Leave || (next == Next::Decode && !decodeReceiveFrame()))
            return;
    }
}

Playback::Next Playback::readPacket()
{
    av_packet_unref(packet.get());
    if (read_deadline.isForever())
        read_deadline.setRemainingTime(g_readTimeout.load());
    int code = av_read_frame(format.get(), packet.get());
    if (code < 0)
        return handleReadFailure(code);
    if (isBroken()) {
        releaseAV();
        send(EventFinished);
        return Next::Leave;
    }
    if (is_underload)
        setIsUnderload(false);
    if (leaveIfAsked())
        return Next::Leave;
    if (filter_dirty)
        return initFilter() ? Next::Head : failPlay("reset filter failed.");
    if (packet->stream_index != stream_index)
        return Next::Head;
    code = avcodec_send_packet(codec.get(), packet.get());
    if (code < 0)
        return is_http ? Next::Head : failPlay("avcodec send packet failed.");
    read_deadline = QDeadlineTimer(QDeadlineTimer::Forever);
    return Next::Decode;
}

Playback::Next Playback::handleReadFailure(int code)
{
    if (code == AVERROR_EOF)
        return flushDecoder();
    if (!is_http)
        return state == PlayPausing ? flushDecoder() : failPlay("av read frame failed.");
    if (code == AVERROR(EAGAIN) || code == AVERROR_INVALIDDATA) {
        setIsUnderload(true);
        waitUnlessAsked(kBusyPause);
        return Next::Head;
    }
    if (code == AVERROR_EXIT && state != PlayPausing)
        return failPlay("av read frame failed.");
    return retryLater();
}

Playback::Next Playback::flushDecoder()
{
    avcodec_send_packet(codec.get(), nullptr);
    return decodeReceiveFrame() ? Next::Head : Next::Leave;
}

Playback::Next Playback::retryLater()
{
    read_deadline = QDeadlineTimer(QDeadlineTimer::Forever);
    if (format->duration != 0 && play_time_ms >= format->duration / 1000 - kNearEndMs)
        return Next::Leave;
    waitUnlessAsked(kRetryPause);
    // Otherwise the buffered reader would answer with its last failure for ever.
    format->pb->eof_reached = 0;
    format->pb->error = 0;
    return Next::Head;
}

Playback::Next Playback::failPlay(const char* message)
{
    releaseAV();
    sendError(message);
    return Next::Leave;
}

void Playback::seekNow()
{
    qint64 position_ms = seek_ms;
    if (is_http) {
        seekHttp(position_ms);
    } else {
        const int64_t timestamp = av_rescale_q(position_ms, {1, 1000}, stream()->time_base);
        const int code = av_seek_frame(format.get(), stream_index, timestamp, AVSEEK_FLAG_BACKWARD);
        if (code < 0)
            warning("seek", "error in seek file", code);
    }
    avcodec_flush_buffers(codec.get());
    seek_ms.compare_exchange_strong(position_ms, -1); // a later seek stays
}

void Playback::seekHttp(qint64 position_ms)
{
    const int64_t size = std::max<int64_t>(avio_size(format->pb), 0);
    const int64_t position =
        format->duration > 0 ? av_rescale(size, av_rescale(position_ms, 1000, 1), format->duration) : 0;
    const int code = av_seek_frame(format.get(), stream_index, position, AVSEEK_FLAG_BYTE);
    if (code < 0)
        warning("seekHttp", "error in seek file", code);
    send(EventProgress, {{QStringLiteral("PlayTime"), position_ms}});
    add_seek_base = false;
    await_first_write = true;
    setIsUnderload(true);
}

bool Playback::decodeReceiveFrame()
{
    while (!isBroken()) {
        const int code = avcodec_receive_frame(codec.get(), frame.get());
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
        if (frame_duration_ms > kLongFrameMs && seek_ms >= 0)
            return true;
        if (!filter.push(frame.get())) {
            failPlay("av buffersrc add frame failed.");
            return false;
        }
        if (!writeFilteredFrames())
            return false;
    }
    return true;
}

bool Playback::writeFilteredFrames()
{
    while (!isBroken() && filter.pull(frame.get())) {
        if (frame_duration_ms == 0)
            frame_duration_ms = static_cast<int>(qint64{frame->nb_samples} * 1000 / frame->sample_rate);
        if (leaveIfAsked() || !writeFrame(*frame))
            return false;
        sendProgress(*frame);
        av_frame_unref(frame.get());
    }
    return true;
}

bool Playback::writeFrame(const AVFrame& filtered)
{
    const auto* data = reinterpret_cast<const char*>(filtered.data[0]);
    qint64 remaining = qint64{filtered.nb_samples} * channelCount(filtered) * 2;
    int failures = 0;
    while (!isBroken()) {
        if (leaveIfAsked())
            return false;
        if (seek_ms >= 0)
            break;
        output.update();
        if (!output.isReady()) {
            calcCurrentTime(packet->pts);
            waitUnlessAsked(PlaybackOutput::playingTime(remaining));
            play_time_ms += packetTime();
            break;
        }
        qint64 written = 0;
        if (output.hasRoom()) {
            calcCurrentTime(packet->pts);
            written = output.write(data, remaining);
            play_time_ms += packetTime();
        }
        output.watch(written > 0);
        if (written < 1 && failures < kFailuresLogged && ++failures == kFailuresLogged)
            logWriteFailure(remaining, written);
        if (written == -1)
            break;
        remaining -= written;
        if (remaining <= 0)
            break;
        data += written;
        if (const std::chrono::microseconds pause = output.untilRoom(); pause.count() > 0)
            waitUnlessAsked(pause);
    }
    return true;
}

bool Playback::finishDecoding()
{
    if (leaveIfAsked()) // a pause may have cut the last read short
        return false;
    // The tempo filter still holds some 50 ms back.
    if (filter.push(nullptr) && !writeFilteredFrames())
        return false;
    output.drain([this](std::chrono::microseconds time) {
        waitUnless([this] { return isBroken(); }, time);
        return !isBroken();
    });
    releaseAV();
    send(EventFinished);
    return false;
}

void Playback::sendProgress(const AVFrame& filtered)
{
    if (frame_duration_ms <= kLongFrameMs && ++frame_count % kFramesPerProgress != 0)
        return;
    if (!isBroken())
        send(EventProgress, {{QStringLiteral("PlayTime"), static_cast<qlonglong>(play_time_ms)},
                             {QStringLiteral("Samples"), sampleTexts(filtered)}});
}

void Playback::setIsUnderload(bool underload)
{
    send(EventUnderload, {{QStringLiteral("IsUnderload"), underload}});
    is_underload = underload;
}

void Playback::sendError(const char* message) const
{
    report(EventError, {}, QString::fromLatin1(message));
}

void Playback::calcCurrentTime(int64_t pts)
{
    if (pts == AV_NOPTS_VALUE)
        return;
    qint64 time_ms = toMs(stream()->time_base, pts);
    if (await_first_write) {
        await_first_write = false;
        if (time_ms < 1000 && seek_base_ms > 1000)
            add_seek_base = true;
    }
    if (add_seek_base)
        time_ms += seek_base_ms;
    play_time_ms = time_ms;
}

/// How long the packet at hand plays, ms.
qint64 Playback::packetTime() const
{
    return toMs(stream()->time_base, packet->duration);
}

bool Playback::leaveIfAsked()
{
    const int asked = state;
    if (asked == PlayPlaying)
        return false;
    releaseAV();
    if (asked == PlayStopping)
        send(EventStopped);
    else if (asked == PlayPausing)
        send(EventPaused);
    return true;
}

/// Frees what decodes; safe to call twice.
void Playback::releaseAV()
{
    filter.close();
    packet.reset();
    frame.reset();
    codec.reset();
    format.reset();
}

} // namespace multimedia
