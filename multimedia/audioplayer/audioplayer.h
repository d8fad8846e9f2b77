#pragma once

#include "multimedia/audioplayer/audioevents.h"
#include "multimedia/devicemgr/audiodevicechangedobserver.h"
#include "multimedia/multimedia_global.h"

#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QThread>
#include <QtCore/QVariantMap>

#include <memory>

class QEventLoop;

namespace multimedia {
class Playback;
class ProcessEnd;
} // namespace multimedia

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
/// A `stop`, a `pause` or a `breakPlay` without a path also holds for a `play` that was queued before it and
/// has not begun: that one does not play. A paused one reports Paused, Closed and is there to be resumed.
///
/// Every function may be called from any thread unless it says otherwise. The functions without an object
/// look into a file on the caller's thread.
class MULTIMEDIA_EXPORT AudioPlayer : public QObject, public DeviceManager::AudioDeviceChangedObserver
{
    Q_OBJECT

public:
    using Callback = void (*)(void*);

    /// Made on first use, by preference on the main thread; lives until the process ends.
    static AudioPlayer* instance();
    ~AudioPlayer() override;
    /// Ends playback and the thread for good. Happens by itself when the application object goes.
    void release();

    /// `callback` is called with `data`, neither of them null, after every new event: on the thread that sent
    /// the event, with the player locked against all other threads. It may call `audioEvent`.
    void regCallBack(Callback callback, void* data);
    /// Once this has returned the callback is not called any more.
    void deregCallBack();
    /// Removes and returns the oldest event; `EventNone` when there is none. Events that nobody fetches do
    /// not pile up: the newest progress takes the place of the one before, at once where no callback is
    /// registered, else when many wait; of the others the oldest go.
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
    /// A call of `play` as it arrived on the player's thread.
    struct Call
    {
        QString path;
        qint64 position_ms;
        quint64 request; ///< the last of the ending requests that came before it
    };

    AudioPlayer();

    void playNow(const Call& call);
    bool accept(const Call& call);
    void finishPlay();
    void resume();
    quint64 addRequest();
    void sendAudioEvent(EventId id, const QVariantMap& info = {}, const QString& message = {});
    void makeRoom(EventId id);

    // Guarded by `m_mutex`.
    Callback m_callback = nullptr;
    void* m_callbackData = nullptr;
    QList<AudioEvents> m_events;
    QEventLoop* m_stopLoop = nullptr; ///< of a waiting `stop`
    QString m_filePath;               ///< the announced source
    qint64 m_durationHint = 0;        ///< of that source, ms
    QString m_pausedPath;             ///< what to resume
    qint64 m_pausedPos = 0;           ///< where to resume, ms
    qint64 m_playTime = 0;            ///< where the last playback ended, ms
    qint64 m_seekPos = -1;            ///< seek asked for while nothing plays, ms; negative for none
    double m_speed = 1.0;
    bool m_released = false;
    multimedia::Playback* m_playback = nullptr; ///< the one that runs, on the player's thread
    quint64 m_requests = 0;                     ///< counts the requests that end a playback
    quint64 m_stopRequest = 0;                  ///< the last of them that was a stop
    quint64 m_pauseRequest = 0;                 ///< the last of them that was a pause
    bool m_isAnnouncing = false;                ///< the callback runs, on the thread that holds the lock
    QRecursiveMutex m_mutex;

    // What follows belongs to the player's thread.
    quint64 m_arrivedRequest = 0; ///< the request that the thread's event queue has come to
    bool m_isInPlay = false;
    /// To be played in turn. Some come while one runs: Qt's output handles events when it is destroyed.
    QList<Call> m_calls;

    QThread m_thread;
    std::unique_ptr<multimedia::ProcessEnd> m_processEnd;
};
