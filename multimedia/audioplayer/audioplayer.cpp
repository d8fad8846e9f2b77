#include "multimedia/audioplayer/audioplayer.h"

#include "multimedia/audioplayer/playback.h"
#include "multimedia/base/processend.h"
#include "multimedia/devicemgr/devicemgr.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>
#include <QtCore/QMutexLocker>
#include <QtCore/QTimer>
#include <QtMultimedia/QAudioDeviceInfo>

#include <algorithm>
#include <optional>
#include <utility>

namespace {
constexpr int kStopWaitMs = 200;
constexpr unsigned long kReleaseWaitMs = 3000;

constexpr int kMostEvents = 256; ///< that wait to be fetched

constexpr qint64 kLongestMs = 1'000'000'000'000'000; ///< leaves room for microseconds and for sums

qint64 bounded(qint64 ms)
{
    return std::clamp(ms, -kLongestMs, kLongestMs);
}
} // namespace

using multimedia::Playback;

AudioPlayer* AudioPlayer::instance()
{
    static auto* const player = new AudioPlayer;
    return player;
}

AudioPlayer::AudioPlayer()
{
    moveToThread(&m_thread);
    m_thread.setObjectName(QStringLiteral("audioPlayerThread"));
    m_thread.start(QThread::InheritPriority);
    avformat_network_init();
    // Qt's connection to the sound server belongs to the thread that asks first, and looks for a lost server
    // by the event loop there. The player's thread has none while it plays.
    const QCoreApplication* application = QCoreApplication::instance();
    if (application && QThread::currentThread() == application->thread())
        QAudioDeviceInfo::availableDevices(QAudio::AudioOutput);
    DeviceManager::DeviceMgr::observeUnlessReleased(this);
    m_processEnd = std::make_unique<multimedia::ProcessEnd>([this] { release(); });
}

AudioPlayer::~AudioPlayer() = default;

void AudioPlayer::release()
{
    {
        const QMutexLocker locker(&m_mutex);
        m_released = true;
        if (m_playback)
            m_playback->breakOff();
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
    const bool is_playing = m_playback && !m_playback->isBroken();
    if (path.isEmpty())
        m_stopRequest = addRequest();
    if (path.isEmpty() && !is_playing)
        return;
    if (m_playback)
        m_playback->breakOff();
    m_filePath = path;
    m_durationHint = bounded(durationMs);
    m_playTime = 0;
    m_pausedPath.clear();
    m_pausedPos = 0;
}

/// Numbers a request that also holds for what was queued before it. Its place in the event queue of the
/// player's thread tells the calls of `play` before it from those after it. The lock is held.
quint64 AudioPlayer::addRequest()
{
    const quint64 request = ++m_requests;
    if (!m_released)
        QMetaObject::invokeMethod(
            this, [this, request] { m_arrivedRequest = request; }, Qt::QueuedConnection);
    return request;
}

void AudioPlayer::play(const QString& filePath, qlonglong seekPos)
{
    if (QThread::currentThread() != &m_thread) {
        QMetaObject::invokeMethod(this, [this, filePath, seekPos] { play(filePath, seekPos); });
        return;
    }
    {
        const QMutexLocker locker(&m_mutex);
        const quint64 request = m_isAnnouncing ? m_requests : m_arrivedRequest;
        m_calls.append({filePath, bounded(seekPos), request});
    }
    if (m_isInPlay)
        return;
    m_isInPlay = true;
    while (!m_calls.isEmpty())
        playNow(m_calls.takeFirst());
    m_isInPlay = false;
}

void AudioPlayer::playNow(const Call& call)
{
    std::optional<Playback> playback;
    {
        const QMutexLocker locker(&m_mutex);
        if (!accept(call))
            return;
        playback.emplace(Playback::Source{call.path.toUtf8(), call.position_ms, m_durationHint, m_speed},
                         [this](EventId id, const QVariantMap& info, const QString& message) {
                             sendAudioEvent(id, info, message);
                         });
        m_seekPos = -1;
        m_playback = &*playback;
    }
    playback->run();
    finishPlay();
}

/// Whether to play; the lock is held.
bool AudioPlayer::accept(const Call& call)
{
    if (call.path.isEmpty() || call.path != m_filePath || m_released || call.request < m_stopRequest)
        return false;
    if (call.request >= m_pauseRequest)
        return true;
    m_pausedPath = call.path;
    m_pausedPos = std::max<qint64>(call.position_ms, 0);
    sendAudioEvent(EventPaused);
    sendAudioEvent(EventClosed);
    return false;
}

/// From here on nothing is asked of the playback any more.
void AudioPlayer::finishPlay()
{
    const QMutexLocker locker(&m_mutex);
    if (!m_playback->isBroken())
        m_playTime = m_playback->playTime();
    m_seekPos = m_playback->pendingSeek();
    m_durationHint = 0;
    m_playback = nullptr;
    sendAudioEvent(EventClosed);
}

void AudioPlayer::seekPos(qlonglong ms)
{
    const QMutexLocker locker(&m_mutex);
    if (m_playback)
        m_playback->seek(bounded(ms));
    else
        m_seekPos = bounded(ms);
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
    m_pauseRequest = addRequest();
    m_pausedPath = m_filePath;
    m_pausedPos = m_playTime;
    if (!m_playback || m_playback->isBroken())
        return;
    m_playback->pause();
    m_pausedPos = m_playback->playTime();
}

void AudioPlayer::resume()
{
    QString path;
    qint64 position_ms = 0;
    {
        const QMutexLocker locker(&m_mutex);
        path = m_pausedPath.isEmpty() ? m_filePath : m_pausedPath;
        position_ms = m_seekPos != -1 ? m_seekPos : m_pausedPos;
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
    m_stopRequest = addRequest();
    if (m_playback && m_playback->stop() && wait) {
        QEventLoop loop;
        m_stopLoop = &loop;
        QTimer::singleShot(kStopWaitMs, &loop, &QEventLoop::quit);
        loop.exec();
        m_stopLoop = nullptr;
    }
    sendAudioEvent(EventStopped);
}

void AudioPlayer::setSpeed(double speed)
{
    const QMutexLocker locker(&m_mutex);
    // Written this way a speed that is no number counts as different from any.
    if (!(std::exchange(m_speed, speed) == speed) && m_playback)
        m_playback->setSpeed(speed);
}

void AudioPlayer::closeAudioOutput()
{
    const QMutexLocker locker(&m_mutex);
    if (m_playback)
        m_playback->closeOutput();
}

void AudioPlayer::handleDeviceChanged()
{
    const QMutexLocker locker(&m_mutex);
    if (m_playback)
        m_playback->followDevice();
}

void AudioPlayer::sendAudioEvent(EventId id, const QVariantMap& info, const QString& message)
{
    const QMutexLocker locker(&m_mutex);
    makeRoom(id);
    m_events.append({id, info, message});
    if (m_callback && m_callbackData) {
        const bool was_announcing = std::exchange(m_isAnnouncing, true);
        m_callback(m_callbackData);
        m_isAnnouncing = was_announcing;
    }
    if (id == EventStopped && m_stopLoop)
        m_stopLoop->quit();
}

/// A host that does not fetch its events misses positions first.
void AudioPlayer::makeRoom(EventId id)
{
    const auto is_progress = [](const AudioEvents& event) { return event.eventId == EventProgress; };
    const bool is_full = m_events.size() >= kMostEvents;
    if (id == EventProgress && (is_full || !m_callback || !m_callbackData)) {
        const auto newest = std::find_if(m_events.rbegin(), m_events.rend(), is_progress);
        if (newest != m_events.rend()) {
            m_events.erase(std::prev(newest.base()));
            return;
        }
    }
    if (is_full)
        m_events.removeFirst();
}
