#include "multimedia/audioplayer/audioplayer_p.h"
#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/warning.h"
#include "multimedia/devicemgr/audiodevice.h"
#include "quillon/quillonlog.h"

#include <QtCore/QLoggingCategory>
#include <QtMultimedia/QAudioDeviceInfo>
#include <QtMultimedia/QAudioFormat>
#include <QtMultimedia/QAudioOutput>

#include <algorithm>

using DeviceManager::AudioDevice;

namespace {
constexpr int kRateHz = 44100;
constexpr int kChannels = 2;
constexpr int kFrameBytes = kChannels * 2;
constexpr int kBufferBytes = 40960; ///< about 232 ms
constexpr int kDrainedBytes = 500;  ///< so little left to play counts as played
constexpr int kDrainPolls = 50;
constexpr unsigned long kDrainPollMs = 20;
constexpr unsigned long kWritePollMs = 5;
constexpr int kFailuresLogged = 50;
/// A device that took nothing for so long, ten times its buffer, is lost.
constexpr qint64 kLostAfterMs = 2000;
/// Qt may learn of a new default a little later than we do, and of a new server 3 s after the old one's end.
constexpr int kReopenTries = 50;
constexpr int kReopenPauseMs = 100;

QAudioFormat outputFormat()
{
    QAudioFormat format;
    format.setSampleSize(16);
    format.setByteOrder(QAudioFormat::LittleEndian);
    format.setSampleType(QAudioFormat::SignedInt);
    format.setCodec(QStringLiteral("audio/pcm"));
    format.setSampleRate(kRateHz);
    format.setChannelCount(kChannels);
    return format;
}

/// Without any device Qt lists one that has no name.
bool hasOutputDevices()
{
    const QList<QAudioDeviceInfo> devices = QAudioDeviceInfo::availableDevices(QAudio::AudioOutput);
    return std::any_of(devices.cbegin(), devices.cend(),
                       [](const QAudioDeviceInfo& device) { return !device.deviceName().isEmpty(); });
}

std::chrono::microseconds playingTime(qint64 bytes)
{
    return std::chrono::microseconds(bytes * 1'000'000 / (kRateHz * kFrameBytes));
}
} // namespace

bool AudioPlayer::initAudio()
{
    if (!hasOutputDevices()) {
        m_outputReady = false;
        return false;
    }
    closeAudioOutput();
    m_audioOutput =
        std::make_unique<QAudioOutput>(QAudioDeviceInfo::defaultOutputDevice(), outputFormat(), nullptr);
    m_audioOutput->setBufferSize(kBufferBytes);
    m_ioDevice = m_audioOutput->start();
    m_hasOutput = true;
    m_outputStarted = false;
    m_sinceWrite.start();
    m_outputReady = m_ioDevice && m_audioOutput->error() == QAudio::NoError;
    if (!m_outputReady)
        qCDebug(MultimediaCategoryLogging, "audio output does not open: %d", m_audioOutput->error());
    return m_outputReady;
}

void AudioPlayer::closeAudioOutput()
{
    if (QThread::currentThread() != &m_thread) {
        m_closeOutput = true;
        return;
    }
    m_closeOutput = false;
    m_hasOutput = false;
    m_outputReady = false;
    if (!m_audioOutput)
        return;
    if (m_ioDevice)
        m_ioDevice->close();
    m_ioDevice = nullptr;
    m_audioOutput->stop();
    m_audioOutput.reset();
}

bool AudioPlayer::writeFrame(const AVFrame& frame)
{
    const auto* data = reinterpret_cast<const char*>(frame.data[0]);
    qint64 remaining = qint64{frame.nb_samples} * multimedia::channelCount(frame) * 2;
    int failures = 0;
    while (m_running) {
        if (leaveIfAsked())
            return false;
        if (m_seekPos >= 0)
            break;
        if (m_closeOutput)
            closeAudioOutput();
        followDeviceChange();
        if (!m_outputReady) {
            calcCurrentTime(m_media->packet->pts);
            pauseUnlessAsked(playingTime(remaining));
            m_playTime += packetTime();
            break;
        }
        const qint64 written = writeSome(data, remaining);
        watchOutput(written > 0);
        if (written < 1 && failures < kFailuresLogged && ++failures == kFailuresLogged)
            logWriteFailure(remaining, written);
        if (written == -1)
            break;
        remaining -= written;
        if (remaining <= 0)
            break;
        QThread::msleep(kWritePollMs);
        data += written;
    }
    return true;
}

qint64 AudioPlayer::writeSome(const char* data, qint64 size)
{
    const int period = m_audioOutput->periodSize();
    const int free = m_audioOutput->bytesFree();
    watchStart(free);
    if (period <= 0 || free / period <= 0)
        return 0;
    calcCurrentTime(m_media->packet->pts);
    const qint64 written = m_ioDevice->write(data, std::min<qint64>(period, size));
    m_sinceDryBytes += std::max<qint64>(written, 0);
    m_playTime += packetTime();
    return written;
}

/// A device that has run dry waits for a full buffer again. How much of an empty one is free differs: all of
/// it with PulseAudio, not quite with PipeWire once it has played.
void AudioPlayer::watchStart(int free)
{
    if (m_audioOutput->state() != QAudio::ActiveState) {
        m_outputStarted = false;
        m_dryFree = free;
        m_sinceDryBytes = 0;
    }
    m_outputStarted = m_outputStarted || m_sinceDryBytes > m_dryFree - free;
}

/// Reopens the output on a new default device as soon as Qt knows it; what was written before still plays
/// meanwhile.
void AudioPlayer::followDeviceChange()
{
    if (m_deviceChanged.exchange(false)) {
        m_reopenTries = kReopenTries;
        m_nextReopen.setRemainingTime(0);
    }
    if (m_reopenTries == 0 || !m_nextReopen.hasExpired())
        return;
    --m_reopenTries;
    m_nextReopen.setRemainingTime(kReopenPauseMs);
    const auto current = AudioDevice::currentDevice(DeviceTypeDefine::AudioOutput);
    if (!current) { // the next change brings one
        m_outputReady = false;
        m_reopenTries = 0;
        return;
    }
    const bool known = QAudioDeviceInfo::defaultOutputDevice().deviceName() == current->name;
    if ((known || m_reopenTries == 0) && initAudio())
        m_reopenTries = 0;
}

/// The player's thread has no event loop to hear of a lost device by.
void AudioPlayer::watchOutput(bool written)
{
    if (written) {
        m_sinceWrite.start();
    } else if (m_sinceWrite.hasExpired(kLostAfterMs)) {
        qWarning("audio output takes no data any more, playing on in silence");
        m_outputReady = false;
    }
}

void AudioPlayer::logWriteFailure(qint64 size, qint64 written)
{
    const QString text =
        QStringLiteral("decodeReceiveFrame -> m_ioDevice -> write maxDataSize:%1 writeSize:%2")
            .arg(size)
            .arg(written);
    QuillonLog::error(text);
    qCDebug(MultimediaCategoryLogging, "%s", qPrintable(text));
}

/// Until all is played. PipeWire keeps some bytes of an empty buffer to itself and only tells that it ran
/// dry, which may be old news until what the buffer holds has had its time.
void AudioPlayer::drainOutput()
{
    if (!m_outputReady)
        return;
    padWithSilence();
    const int size = m_audioOutput->bufferSize();
    const QDeadlineTimer played(playingTime(size - m_audioOutput->bytesFree()), Qt::PreciseTimer);
    const auto is_drained = [&] {
        return m_audioOutput->bytesFree() > size - kDrainedBytes ||
               (played.hasExpired() && m_audioOutput->state() != QAudio::ActiveState);
    };
    for (int i = 0; i < kDrainPolls && m_running && !is_drained(); ++i)
        QThread::msleep(kDrainPollMs);
}

/// On Linux nothing is heard until the buffer was full once: fills it up behind a source that was too short
/// for that.
void AudioPlayer::padWithSilence()
{
    const int free = m_audioOutput->bytesFree();
    watchStart(free);
    if (m_outputStarted || m_sinceDryBytes == 0)
        return;
    const QByteArray silence(std::max(free, 0), '\0');
    m_ioDevice->write(silence);
}
