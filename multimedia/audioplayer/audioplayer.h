#pragma once

#include "multimedia/audioplayer/audioevents.h"
#include "multimedia/devicemgr/audiodevicechangedobserver.h"
#include "multimedia/multimedia_global.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QElapsedTimer>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QThread>
#include <QtCore/QVariantMap>

#include <atomic>
#include <chrono>
#include <memory>

class QAudioOutput;
class QEventLoop;
class QIODevice;
struct AVFrame;
struct AVStream;

/// Plays one audio source at a time, a local file or an "http..." URL, on the default output and at a
/// variable speed.
///
/// The player lives on a thread of its own, "audioPlayerThread", which a playback blocks from its start to
/// its end. The host steers it by functions that only leave a request, and learns what happens by fetching
/// events: a callback announces each of them. The order to keep is `regCallBack` once, then for every source
/// `breakPlay`, which ends what is playing, and a *queued* `play` of the same path:
///
///     static void announce(void* host)  // on any thread, must not block
///     {
///         QMetaObject::invokeMethod(static_cast<Host*>(host), "fetch", Qt::QueuedConnection);
///     }
///     void Host::open(const QString& path)
///     {
///         AudioPlayer* player = AudioPlayer::instance();
///         player->regCallBack(announce, this);
///         player->breakPlay(path, 0);
///         QMetaObject::invokeMethod(player, "play", Qt::QueuedConnection, Q_ARG(QString, path));
///     }
///     void Host::fetch()
///     {
///         const AudioEvents event = AudioPlayer::instance()->audioEvent();
///         if (event.eventId == EventProgress)
///             showPosition(event.info["PlayTime"].toLongLong());
///     }
///
/// The events of one `play` come in this order:
///
///     normal           Duration, Started, Progress..., Finished, Closed
///     http             Underload(true) first, Underload(false) with the first data
///     stop             ..., Stopped (by `stop`), Stopped (by the player), Closed
///     pause            ..., Paused, Closed; a resume is a new play from the same position
///     break            ..., Closed; a break during a read also sends Finished, or Error if the read failed
///     failure          ..., Error, Closed
///
/// Without an output device, or when the output is lost, playback goes on in silence at real-time pace, and
/// the sound comes back when the default output changes.
///
/// Every function may be called from any thread unless it says otherwise. What is shared between threads is
/// atomic or guarded by `m_mutex`; the rest belongs to the player's thread. The functions without an object
/// look into a file on the caller's thread.
class MULTIMEDIA_EXPORT AudioPlayer : public QObject, public DeviceManager::AudioDeviceChangedObserver
{
    Q_OBJECT

public:
    using Callback = void (*)(void*);

    /// Made on first use, by preference on the main thread; lives until the process ends.
    static AudioPlayer* instance();
    ~AudioPlayer() override;
    /// Ends playback and the thread for good. The host calls it before its application object goes.
    void release();

    /// `callback` is called with `data`, neither of them null, after every new event: on the thread that sent
    /// the event, with the player locked against all other threads. It may call `audioEvent`.
    void regCallBack(Callback callback, void* data);
    /// Once this has returned the callback is not called any more.
    void deregCallBack();
    /// Removes and returns the oldest event; `EventNone` when there is none.
    AudioEvents audioEvent();

    /// Announces the next source and makes a running `play` return. An empty path only ends the playback.
    ///
    /// @param durationMs  taken for the length of an HTTP source whose own is a guess from its bit rate; 0 if
    ///                    not known. Counts only when nothing was playing.
    void breakPlay(const QString& path, qlonglong durationMs);
    void seekPos(qlonglong ms);
    /// True ends the playback and keeps its position, false plays from there, or from a seek made meanwhile.
    void pause(bool paused);
    /// @param wait  waits 200 ms in a local event loop, so that the device has gone quiet
    void stop(bool wait);
    /// From 0.5 to 2.0. Above that x plays at 2(x - 2), from 1.0 for 2.5 on. A value that cannot be played,
    /// such as one between 2.0 and 2.5, ends the playback in an error. Kept for the sources to come.
    void setSpeed(double speed);
    /// The sound ends; the playback goes on in silence.
    void closeAudioOutput();

    void handleDeviceChanged() override;

    /// Milliseconds; 0 on failure.
    static qlonglong duration(const QString& path);
    /// Saves the embedded cover as a JPEG file of a new name in the temporary folder; empty if there is none.
    static QString getCover(const QString& path);
    /// Saves the embedded cover to `outPath`, in the format of its suffix.
    static bool audioCover(const QString& path, const QString& outPath);
    /// Whether the file is audio of a known format. FLAC and APE are not, and neither is video.
    ///
    /// @param duration  milliseconds; untouched on failure before it was known
    /// @param format    in: the expected suffix, which stays if it is a known one; out: the detected one
    static bool audioFormat(const QString& path, long long& duration, QString& format);
    /// @param cover  path of the saved cover as `getCover` makes it; untouched if there is none
    static bool audioFormat(const QString& path, long long& duration, QString& format, QString& cover);
    /// "Album", "Name" and "Artist", as far as the file has them.
    static QVariantMap getAlbumInfo(const QString& path);

public Q_SLOTS:
    /// Plays `filePath` from `seekPos` (ms) and returns when that has ended. Does nothing unless the last
    /// `breakPlay` announced this path, which is how outdated requests die. From another thread the call is
    /// queued.
    void play(const QString& filePath, qlonglong seekPos = 0);

private:
    /// What the player was asked for last; the odd ones make the decode loop leave.
    enum State {
        PlayIdle = 0,
        PlayStopping = 1,
        PlayPlaying = 2,
        PlayPausing = 4,
        PlayBreaking = 5,
    };
    /// FFmpeg's objects of the source that plays.
    struct Media;

    AudioPlayer();

    // Transport and events: audioplayer.cpp
    void playNow(const QString& filePath, qlonglong seekPos);
    void resume();
    void sendAudioEvent(EventId id, const QVariantMap& info = {}, const QString& message = {});
    void sendError(const char* message);
    void setIsUnderload(bool isUnderload);
    void finishPlay();

    // Decode loop: audioplayer_decode.cpp
    bool readyDecoder(const QString& path);
    bool initDecoder(AVStream* stream);
    bool decodeAudio();
    bool decodeReceiveFrame();
    enum class Next { Leave, Head, Decode };
    Next readPacket();
    Next handleReadFailure(int code);
    Next flushDecoder();
    Next retryLater();
    Next failPlay(const char* message);
    void seek();
    void seekHttp(qint64 position_ms);
    bool writeFilteredFrames();
    bool finishDecoding();
    bool leaveIfAsked();
    static bool isLeaving(int state);
    void calcCurrentTime(long long pts);
    qint64 packetTime() const;
    void sendProgress(const AVFrame& frame);
    void pauseUnlessAsked(std::chrono::microseconds time) const;
    void releaseAV();

    // Filter graph: audioplayer_filter.cpp
    bool initFilter();
    bool resetFilter();

    // Output: audioplayer_output.cpp
    bool initAudio();
    bool writeFrame(const AVFrame& frame);
    qint64 writeSome(const char* data, qint64 size);
    void watchStart(int free);
    void followDeviceChange();
    void watchOutput(bool written);
    static void logWriteFailure(qint64 size, qint64 written);
    void drainOutput();
    void padWithSilence();

    Callback m_callback = nullptr;    ///< guarded by `m_mutex`
    void* m_callbackData = nullptr;   ///< guarded by `m_mutex`
    QList<AudioEvents> m_events;      ///< guarded by `m_mutex`
    QEventLoop* m_stopLoop = nullptr; ///< of a waiting `stop`; guarded by `m_mutex`
    QString m_filePath;               ///< the announced source; guarded by `m_mutex`
    QString m_pausedPath;             ///< what to resume; guarded by `m_mutex`
    qint64 m_pausedPos = 0;           ///< where to resume, ms; guarded by `m_mutex`
    QRecursiveMutex m_mutex;          ///< also serialises the writes of the transport fields that follow

    std::atomic<int> m_state = PlayIdle;
    std::atomic<bool> m_running = false;
    std::atomic<bool> m_released = false;
    std::atomic<bool> m_isHttp = false;
    std::atomic<qint64> m_seekPos = -1;     ///< pending seek, ms; negative for none
    std::atomic<qint64> m_seekBase = 0;     ///< where an HTTP source was entered, ms
    std::atomic<qint64> m_playTime = 0;     ///< position, ms
    std::atomic<qint64> m_durationHint = 0; ///< ms
    std::atomic<double> m_speed = 1.0;
    std::atomic<bool> m_filterDirty = false; ///< the speed changed
    std::atomic<bool> m_hasOutput = false;   ///< `m_audioOutput` is there
    std::atomic<bool> m_deviceChanged = false;
    std::atomic<bool> m_closeOutput = false; ///< `closeAudioOutput` was called on another thread

    // What follows belongs to the player's thread.
    bool m_isInPlay = false;
    /// Requests that came while one ran: Qt's output handles events when it is destroyed.
    QList<std::pair<QString, qlonglong>> m_deferredPlays;
    std::unique_ptr<Media> m_media;
    std::unique_ptr<QAudioOutput> m_audioOutput;
    QIODevice* m_ioDevice = nullptr; ///< of `m_audioOutput`
    bool m_outputReady = false;
    int m_dryFree = 0;            ///< bytes that the device had free before the first write since it was dry
    qint64 m_sinceDryBytes = 0;   ///< written since then
    bool m_outputStarted = false; ///< the device has taken some of that out of its buffer: it plays
    QElapsedTimer m_sinceWrite;   ///< since the device took data
    int m_reopenTries = 0;        ///< left, since the default output changed
    QDeadlineTimer m_nextReopen;  ///< when the next one is due
    int m_frameDurationMs = 0;    ///< of a filtered frame, learnt from the first
    int m_frameCount = 0;         ///< thins the progress events
    bool m_addSeekBase = false;   ///< the source counts its time from `m_seekBase`
    bool m_awaitFirstWrite = false; ///< the next position decides `m_addSeekBase`
    bool m_isUnderload = false;

    QThread m_thread;
};
