#pragma once

#include "quillon/editfilefilter.h"

#include <QtCore/QObject>
#include <QtCore/QRunnable>

#include <atomic>
#include <memory>

namespace ImageEdit {

/// One edit of a picture file, done on a pool thread; the pool deletes the task when it has run.
///
/// `cancel` may be called from any thread while the task lives. It is polled before the work, before the save
/// and before what was saved takes its place; nothing is at the result's path then but what was there before.
/// The request is read by the pool thread only.
class ImageEditTask : public QObject, public QRunnable
{
    Q_OBJECT

public:
    /// Shared with whoever may want to cancel: it outlives the task.
    using CancelFlag = std::shared_ptr<std::atomic<bool>>;

    /// @param filter  the request, with a file
    explicit ImageEditTask(EditFileFilterPtr filter);

    void cancel() { *cancelled = true; }
    CancelFlag cancelFlag() const { return cancelled; }

    void run() override;

Q_SIGNALS:
    /// Emitted once, on the pool thread.
    ///
    /// @param code  0 done, 1 cancelled, 2 the result could not be saved
    void editFinish(EditFileFilterPtr filterPtr, int code);

private:
    int edit();

    const EditFileFilterPtr filter;
    const CancelFlag cancelled;
};

} // namespace ImageEdit
