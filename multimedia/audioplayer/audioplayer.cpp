#include "multimedia/audioplayer/audioplayer.h"

#include "multimedia/audioplayer/audioplayer_p.h"
#include "multimedia/devicemgr/devicemgr.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>
#include <QtCore/QMutexLocker>
#include <QtCore/QTimer>
#include <QtMultimedia/QAudioDeviceInfo>
#include <QtMultimedia/QAudioOutput>

#include <algorithm>
#include <utility>

namespace {
constexpr int kStopWaitMs = 200;
constexpr unsigned long kReleaseWaitMs = 3000;

constexpr qint64 kLongestMs = 1'000'000'000'000'000; ///< leaves room for microseconds and for sums

qint64 bounded(qint64 ms)
{
    return std::clamp(ms, -kLongestMs, kLongestMs);
}

bool isHttpPath(const QString& path)
{
    return path.startsWith(QLatin1String("http"));
}
} // namespace

AudioPlayer* AudioPlayer::instance()
{
    static auto* const player = new AudioPlayer;
    return player;
}

AudioPlayer::AudioPlayer()
    : m_media(std::make_unique<Media>())
{
    moveToThread(&m_thread);
    m_thread.setObjectName(QStringLiteral("audioPlayerThread"));
    m_thread.start(QThread::InheritPriority);
    avformat_network_init();
    // Qt's connection to the sound server belongs to the thread that asks first, and looks for a lost server
    // by the event loop there. The player's thread has none while it plays.
    if (QThread::currentThread() == QCoreApplication::instance()->thread())
        QAudioDeviceInfo::availableDevices(QAudio::AudioOutput);
    DeviceManager::DeviceMgr::instance()->registerAudioDeviceChangedObserver(this);
}

AudioPlayer::~AudioPlayer() = default;

void AudioPlayer::release()
{
    {
        const QMutexLocker locker(&m_mutex);
        g_needToInterruptOpen = true;
        m_released = true;
        m_running = false;
        m_state = PlayStopping;
        m_callback = nullptr;
        m_callbackData = nullptr;
    }
    // The player's thread closes the output and needs the lock for its last events, so neither is done here.
    m_thread.quit();
    if (QThread::currentThread() == &m_thread || m_thread.wait(kReleaseWaitMs))
        return;
    qWarning("audioPlayerThread does not end");
    m_thread.terminate();
}

void AudioPlayer::regCallBack(Callback callback, void* data)
{
    const QMutexLocker locker(&m_mutex);
    m_callback = callback;
    m_callbackData = data;
}

void AudioPlayer::deregCallBack()
{
    regCallBack(nullptr, nullptr);
}

AudioEvents AudioPlayer::audioEvent()
{
    const QMutexLocker locker(&m_mutex);
    return m_events.isEmpty() ? AudioEvents() : m_events.takeFirst();
}

void AudioPlayer::breakPlay(const QString& path, qlonglong durationMs)
{
    const QMutexLocker locker(&m_mutex);
    if (path.isEmpty() && !m_running)
        return;
    m_filePath = path;
    g_needToInterruptOpen = true;
    m_running = false;
    m_state = PlayBreaking;
    m_durationHint = bounded(durationMs);
    m_pausedPath.clear();
    m_pausedPos = 0;
}

void AudioPlayer::play(const QString& filePath, qlonglong seekPos)
{
    if (QThread::currentThread() != &m_thread) {
        QMetaObject::invokeMethod(this, [this, filePath, seekPos] { play(filePath, seekPos); });
        return;
    }
    if (m_isInPlay) {
        m_deferredPlays.append({filePath, seekPos});
        return;
    }
    m_isInPlay = true;
    playNow(filePath, seekPos);
    m_isInPlay = false;
    for (const auto& [path, position] : std::exchange(m_deferredPlays, {}))
        QMetaObject::invokeMethod(
            this, [this, path = path, position = position] { play(path, position); }, Qt::QueuedConnection);
}

void AudioPlayer::playNow(const QString& filePath, qlonglong seekPos)
{
    {
        const QMutexLocker locker(&m_mutex);
        if (filePath.isEmpty() || filePath != m_filePath || m_released)
            return;
        g_needToInterruptOpen = false;
        g_interruptOpened = false;
        g_startTime = 0; // the last read of the source before may have left it running
        m_isHttp = isHttpPath(filePath);
        m_seekBase = m_isHttp ? bounded(seekPos) : 0;
        m_state = PlayPlaying;
        m_seekPos = seekPos > 0 ? bounded(seekPos) : -1;
        m_playTime = bounded(std::max(seekPos, 0LL));
        m_running = true;
    }
    m_deviceChanged = false;
    m_reopenTries = 0;
    m_isUnderload = false;
    if (readyDecoder(filePath))
        decodeAudio();
    else if (!g_interruptOpened)
        sendError("decode audio failed.");
    finishPlay();
}

void AudioPlayer::finishPlay()
{
    const QMutexLocker locker(&m_mutex);
    closeAudioOutput();
    if (m_state != PlayBreaking)
        m_state = PlayIdle;
    releaseAV();
    sendAudioEvent(EventClosed);
}

void AudioPlayer::seekPos(qlonglong ms)
{
    const QMutexLocker locker(&m_mutex);
    m_seekPos = bounded(ms);
    if (m_isHttp) {
        m_seekBase = m_seekPos.load();
        m_playTime = m_seekPos.load();
    }
}

void AudioPlayer::pause(bool paused)
{
    if (!paused) {
        QTimer::singleShot(0, this, [this] { resume(); });
        return;
    }
    const QMutexLocker locker(&m_mutex);
    if (m_released)
        return;
    m_state = PlayPausing;
    g_needToInterruptOpen = true;
    m_pausedPath = m_filePath;
    m_pausedPos = m_playTime;
}

void AudioPlayer::resume()
{
    QString path;
    qint64 position_ms = 0;
    {
        const QMutexLocker locker(&m_mutex);
        path = m_pausedPath.isEmpty() ? m_filePath : m_pausedPath;
        position_ms = m_seekPos != -1 ? m_seekPos.load() : m_pausedPos;
        m_pausedPath.clear();
        m_pausedPos = 0;
    }
    play(path, position_ms);
}

void AudioPlayer::stop(bool wait)
{
    // Held throughout, so that the host hears of the request first and then of the player's leaving.
    const QMutexLocker locker(&m_mutex);
    if (!m_callback || !m_callbackData)
        return;
    if (m_state == PlayPlaying) {
        m_state = PlayStopping;
        if (wait) {
            QEventLoop loop;
            m_stopLoop = &loop;
            QTimer::singleShot(kStopWaitMs, &loop, &QEventLoop::quit);
            loop.exec();
            m_stopLoop = nullptr;
        }
    }
    sendAudioEvent(EventStopped);
}

void AudioPlayer::setSpeed(double speed)
{
    // Written this way a speed that is no number counts as different from any.
    if (!(m_speed.exchange(speed) == speed))
        m_filterDirty = true;
}

void AudioPlayer::handleDeviceChanged()
{
    if (m_hasOutput)
        m_deviceChanged = true;
}

void AudioPlayer::sendAudioEvent(EventId id, const QVariantMap& info, const QString& message)
{
    const QMutexLocker locker(&m_mutex);
    m_events.append({id, info, message});
    if (m_callback && m_callbackData)
        m_callback(m_callbackData);
    if (id == EventStopped && m_stopLoop)
        m_stopLoop->quit();
}

void AudioPlayer::sendError(const char* message)
{
    sendAudioEvent(EventError, {}, QString::fromLatin1(message));
}

void AudioPlayer::setIsUnderload(bool isUnderload)
{
    sendAudioEvent(EventUnderload, {{QStringLiteral("IsUnderload"), isUnderload}});
    m_isUnderload = isUnderload;
}
