#pragma once

#include "multimedia/audioplayer/audioplayer.h"

#include <QtCore/QMap>
#include <QtCore/QStringList>
#include <QtTest/QtTest>

#include <chrono>
#include <mutex>
#include <vector>

/// The side of the player's host: keeps every event with the time it came.
class PlayerHost
{
public:
    using Clock = std::chrono::steady_clock;
    struct Heard
    {
        AudioEvents event;
        Clock::time_point time;
    };

    PlayerHost() { player()->regCallBack(announce, this); }
    /// Leaves the player with nothing to do, and nothing to tell.
    ~PlayerHost()
    {
        settle();
        // A device that is being closed runs queued calls, so the playback may not be over. The next one is.
        player()->regCallBack(announce, this);
        forget();
        play(QStringLiteral("nothing"));
        const auto is_over = [this] { return count(EventError) == 1 && order().endsWith("Closed"); };
        if (player()->thread()->isRunning() && !QTest::qWaitFor(is_over))
            qWarning("the player is still at something: %s", qPrintable(order()));
        player()->deregCallBack();
    }
    Q_DISABLE_COPY(PlayerHost)

    static AudioPlayer* player() { return AudioPlayer::instance(); }
    static void play(const QString& path, qint64 from_ms = 0, qint64 duration_ms = 0)
    {
        player()->breakPlay(path, duration_ms);
        QMetaObject::invokeMethod(player(), "play", Qt::QueuedConnection, Q_ARG(QString, path),
                                  Q_ARG(qlonglong, from_ms));
    }

    /// Ends what is played; what was still queued comes before that.
    static void settle()
    {
        player()->breakPlay({}, 0);
        if (player()->thread()->isRunning())
            QMetaObject::invokeMethod(
                player(), [] {}, Qt::BlockingQueuedConnection);
    }

    std::vector<Heard> all() const
    {
        const std::lock_guard lock(mutex);
        return heard;
    }
    void forget()
    {
        const std::lock_guard lock(mutex);
        heard.clear();
    }
    int count(EventId id) const
    {
        const auto events = all();
        return static_cast<int>(std::count_if(
            events.begin(), events.end(), [id](const Heard& entry) { return entry.event.eventId == id; }));
    }
    /// The newest event of this kind; `EventNone` if there was none.
    Heard last(EventId id) const
    {
        const auto events = all();
        const auto found = std::find_if(events.rbegin(), events.rend(),
                                        [id](const Heard& entry) { return entry.event.eventId == id; });
        return found == events.rend() ? Heard() : *found;
    }
    /// Milliseconds; -1 before the first progress.
    qint64 playTime() const
    {
        return last(EventProgress).event.info.value(QStringLiteral("PlayTime"), -1).toLongLong();
    }
    /// Whether a position within `tolerance_ms` of `ms` was reported while sound was written.
    bool wasNear(qint64 ms, qint64 tolerance_ms) const
    {
        const auto events = all();
        return std::any_of(events.begin(), events.end(), [=](const Heard& entry) {
            const QVariantMap& info = entry.event.info;
            return info.contains("Samples") &&
                   std::abs(info.value("PlayTime").toLongLong() - ms) < tolerance_ms;
        });
    }
    /// All events in words, a run of progress events as one.
    QString order() const
    {
        QStringList names;
        for (const Heard& entry : all()) {
            const QString name = describe(entry.event);
            if (name != QLatin1String("Progress") || names.isEmpty() || names.last() != name)
                names.append(name);
        }
        return names.join(' ');
    }

private:
    static void announce(void* self)
    {
        auto* host = static_cast<PlayerHost*>(self);
        const AudioEvents event = player()->audioEvent();
        const std::lock_guard lock(host->mutex);
        host->heard.push_back({event, Clock::now()});
    }
    static QString describe(const AudioEvents& event)
    {
        if (event.eventId == EventProgress)
            return event.info.contains("Samples") ? "Progress" : "Sought";
        if (event.eventId == EventUnderload)
            return event.info.value("IsUnderload").toBool() ? "Underload" : "Flowing";
        if (event.eventId == EventError)
            return "Error(" + event.message + ")";
        static const QMap<EventId, QString> names = {{EventStopped, "Stopped"}, {EventFinished, "Finished"},
                                                     {EventStarted, "Started"}, {EventPaused, "Paused"},
                                                     {EventClosed, "Closed"},   {EventDuration, "Duration"}};
        return names.value(event.eventId, "?");
    }

    mutable std::mutex mutex;
    std::vector<Heard> heard; ///< guarded by `mutex`
};
