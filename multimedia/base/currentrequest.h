#pragma once

#include <QtCore/QMetaObject>
#include <QtCore/QObject>

#include <atomic>
#include <utility>

namespace multimedia {

/// Numbers the requests of which at most one is under way, so that a report that comes late is not taken for
/// an answer to a later one: a report carries the number of its request, and is dropped when nobody waits for
/// that number any more.
///
/// Requests begin and end on the thread of their owner. Any thread may ask, and post reports.
class CurrentRequest
{
public:
    using Number = quint64;

    /// Begins a request; the one before is over.
    Number begin() { return ++current; }
    /// Nobody waits for a report any more.
    void end() { ++current; }
    /// Of the request under way.
    Number number() const { return current; }
    bool isCurrent(Number number) const { return number == current; }

    /// Has `report` called later on the thread of `owner`, which this object is a member of, unless the
    /// request is over by then.
    template<typename Report>
    void post(Number number, QObject* owner, Report report) const
    {
        const auto deliver = [this, number, report = std::move(report)] {
            if (isCurrent(number))
                report();
        };
        QMetaObject::invokeMethod(owner, deliver, Qt::QueuedConnection);
    }

private:
    std::atomic<Number> current = 0;
};

} // namespace multimedia
