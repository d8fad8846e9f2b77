#pragma once

#include "multimedia/audioplayer/audioplayer.h"

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
    ~PlayerHost() { player()->deregCallBack(); }
    PlayerHost(const PlayerHost&) = delete;
    PlayerHost& operator=(const PlayerHost&) = delete;

    static AudioPlayer* player() { return AudioPlayer::instance(); }
    static void play(const QString& path, qint64 from_ms = 0, qint64 duration_ms = 0)
    {
        player()->breakPlay(path, duration_ms);
        QMetaObject::invokeMethod(player(), "play", Qt::QueuedConnection, Q_ARG(QString, path),
                                  Q_ARG(qlonglong, from_ms));
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
        switch (event.eventId) {
        case EventStopped:
            return "Stopped";
        case EventFinished:
            return "Finished";
        case EventStarted:
            return "Started";
        case EventPaused:
            return "Paused";
        case EventProgress:
            return event.info.contains("Samples") ? "Progress" : "Sought";
        case EventClosed:
            return "Closed";
        case EventError:
            return "Error(" + event.message + ")";
        case EventDuration:
            return "Duration";
        case EventUnderload:
            return event.info.value("IsUnderload").toBool() ? "Underload" : "Flowing";
        default:
            return "?";
        }
    }

    mutable std::mutex mutex;
    std::vector<Heard> heard; ///< guarded by `mutex`
};
