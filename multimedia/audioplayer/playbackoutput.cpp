#include "multimedia/audioplayer/playbackoutput.h"

#include "multimedia/base/soundend.h"
#include "multimedia/base/warning.h"
#include "multimedia/devicemgr/audiodevice.h"

#include <QtCore/QLoggingCategory>
#include <QtMultimedia/QAudioDeviceInfo>
#include <QtMultimedia/QAudioFormat>
#include <QtMultimedia/QAudioOutput>

#include <algorithm>

using DeviceManager::AudioDevice;

namespace multimedia {

namespace {
constexpr int kRateHz = 44100;
constexpr int kChannels = 2;
constexpr int kFrameBytes = kChannels * 2;
constexpr int kBufferBytes = 40960; ///< about 232 ms
constexpr int kPeriodsAwaited = 3;  ///< 60 ms, a quarter of the buffer
constexpr std::chrono::milliseconds kWritePause(5);
constexpr int kDrainedBytes = 500; ///< so little left to play counts as played
constexpr int kDrainPolls = 50;
constexpr std::chrono::milliseconds kDrainPause(20);
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
} // namespace

PlaybackOutput::PlaybackOutput() = default;

PlaybackOutput::~PlaybackOutput()
{
    close();
}

bool PlaybackOutput::initAudio()
{
    if (!hasOutputDevices()) {
        ready = false;
        return false;
    }
    close();
    output = std::make_unique<QAudioOutput>(QAudioDeviceInfo::defaultOutputDevice(), outputFormat(), nullptr);
    output->setBufferSize(kBufferBytes);
    device = output->start();
    soundHasOpened();
    has_output = true;
    started = false;
    since_write.start();
    ready = device && output->error() == QAudio::NoError;
    if (!ready)
        qCDebug(MultimediaCategoryLogging, "audio output does not open: %d", output->error());
    return ready;
}

void PlaybackOutput::close()
{
    has_output = false;
    ready = false;
    if (!output)
        return;
    if (device)
        device->close();
    device = nullptr;
    output->stop();
    output.reset();
    soundHasClosed();
}

void PlaybackOutput::followDevice()
{
    if (has_output)
        device_changed = true;
}

void PlaybackOutput::update()
{
    if (close_requested.exchange(false))
        close();
    followDeviceChange();
}

std::chrono::microseconds PlaybackOutput::playingTime(qint64 bytes)
{
    return std::chrono::microseconds(bytes * 1'000'000 / (kRateHz * kFrameBytes));
}

bool PlaybackOutput::hasRoom()
{
    const int period = output->periodSize();
    const int free = output->bytesFree();
    watchStart(free);
    return period > 0 && free >= period;
}

std::chrono::microseconds PlaybackOutput::untilRoom() const
{
    if (!ready)
        return {};
    const int period = output->periodSize();
    const int free = output->bytesFree();
    if (free >= period)
        return {};
    const std::chrono::milliseconds waited(since_write.elapsed());
    return std::max<std::chrono::microseconds>(kWritePause,
                                               playingTime(qint64{kPeriodsAwaited} * period - free) - waited);
}

qint64 PlaybackOutput::write(const char* data, qint64 size)
{
    const qint64 written = device->write(data, std::min<qint64>(output->periodSize(), size));
    since_dry_bytes += std::max<qint64>(written, 0);
    return written;
}

/// A device that has run dry waits for a full buffer again. How much of an empty one is free differs: all of
/// it with PulseAudio, not quite with PipeWire once it has played.
void PlaybackOutput::watchStart(int free)
{
    if (output->state() != QAudio::ActiveState) {
        started = false;
        dry_free = free;
        since_dry_bytes = 0;
    }
    started = started || since_dry_bytes > dry_free - free;
}

/// Reopens the output on a new default device as soon as Qt knows it; what was written before still plays
/// meanwhile.
void PlaybackOutput::followDeviceChange()
{
    if (device_changed.exchange(false)) {
        reopen_tries = kReopenTries;
        next_reopen.setRemainingTime(0);
    }
    if (reopen_tries == 0 || !next_reopen.hasExpired())
        return;
    --reopen_tries;
    next_reopen.setRemainingTime(kReopenPauseMs);
    const auto current = AudioDevice::currentDevice(DeviceTypeDefine::AudioOutput);
    if (!current) { // the next change brings one
        ready = false;
        reopen_tries = 0;
        return;
    }
    const bool known = QAudioDeviceInfo::defaultOutputDevice().deviceName() == current->name;
    if ((known || reopen_tries == 0) && initAudio())
        reopen_tries = 0;
}

/// The player's thread has no event loop to hear of a lost device by.
void PlaybackOutput::watch(bool written)
{
    if (written) {
        since_write.start();
    } else if (since_write.hasExpired(kLostAfterMs)) {
        qWarning("audio output takes no data any more, playing on in silence");
        ready = false;
    }
}

/// Until all is played. PipeWire keeps some bytes of an empty buffer to itself and only tells that it ran
/// dry, which may be old news until what the buffer holds has had its time.
void PlaybackOutput::drain(const std::function<bool(std::chrono::microseconds)>& wait)
{
    if (!ready)
        return;
    padWithSilence();
    const int size = output->bufferSize();
    const QDeadlineTimer played(playingTime(size - output->bytesFree()), Qt::PreciseTimer);
    const auto is_drained = [&] {
        return output->bytesFree() > size - kDrainedBytes ||
               (played.hasExpired() && output->state() != QAudio::ActiveState);
    };
    for (int i = 0; i < kDrainPolls && !is_drained() && wait(kDrainPause); ++i)
        continue;
}

/// On Linux nothing is heard until the buffer was full once: fills it up behind a source that was too short
/// for that.
void PlaybackOutput::padWithSilence()
{
    const int free = output->bytesFree();
    watchStart(free);
    if (started || since_dry_bytes == 0)
        return;
    const QByteArray silence(std::max(free, 0), '\0');
    device->write(silence);
}

} // namespace multimedia
