#pragma once

#include <QtCore/QString>
#include <QtCore/QVariantMap>

/// What an `AudioPlayer` reports. 7 and 8 are not used.
enum EventId {
    EventNone = 0,     ///< there was nothing to fetch; never queued
    EventStopped = 1,  ///< stopped by the host
    EventFinished = 2, ///< the source was played to its end
    EventStarted = 3,  ///< the source is open, playing begins
    EventPaused = 4,   ///< left at the position that a resume goes on from
    EventProgress = 5, ///< "PlayTime" (qlonglong, ms), mostly with "Samples" (QStringList of decimal numbers)
    EventClosed = 6,   ///< the end of every accepted `play`, whatever became of it
    EventError = 9,    ///< `AudioEvents::message` says what failed
    EventDuration = 10,  ///< "Duration" (qlonglong, ms)
    EventUnderload = 11, ///< "IsUnderload" (bool): whether the network keeps the player waiting
};

/// One event, with what it tells.
struct AudioEvents
{
    EventId eventId = EventNone;
    QVariantMap info;
    QString message; ///< of `EventError`, else empty
};
