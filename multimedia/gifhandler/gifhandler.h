#pragma once

#include "multimedia/gifhandler/gifhandlercontext.h"
#include "multimedia/multimedia_global.h"

#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QSet>
#include <QtCore/QStringList>
#include <QtCore/QVariant>

#include <memory>

class CompressGif;
class QThread;
namespace multimedia {
class CurrentRequest;
class ProcessEnd;
} // namespace multimedia

/// Makes GIF files smaller, or turns them into MP4.
///
/// Requests wait in one queue, first in, first out, and run one at a time on a thread of the handler's own,
/// started with the first of them. Beside it there is a path that runs on the caller's thread.
///
/// All operations belong to the handler's thread, which needs an event loop for the results, except
/// `compressGifSync`, `gifTranscodeToMP4` and `cancelCompressGifSync`, which may be called from any; of the
/// first two, calls that come at the same time run one after another.
///
/// Every failure is a result false; the reason stands in the log. A result file is left as it is when its
/// run fails or is cancelled.
class MULTIMEDIA_EXPORT GifHandler : public QObject
{
    Q_OBJECT

public:
    explicit GifHandler(QObject* parent = nullptr);
    /// Cancels everything without a signal and waits until the runs under way have ended, which they do at
    /// their next frame.
    ~GifHandler() override;

    /// Appends a request that is ready. Its id is not looked at; its `sync` is taken back, since every
    /// request of the queue reports, and so is an earlier cancel.
    void addCompressGif(const GifHandlerContextPtr& context);
    /// Queues a request. An empty id, one that is in the queue already, a missing source or a destination
    /// folder that cannot be made give `sigCompressComplete(compressId, false)` before this returns.
    ///
    /// @param level       `kGifCompressHalf`, or anything else to let `targetSize` decide alone
    /// @param targetSize  in pixels; used if both sides are above 0
    void compressGif(const QString& compressId, const QString& srcFilePath, const QString& destFilePath,
                     GifCompressLevel level, const QSize& targetSize);
    /// `compressGif` for each map of a list, by the keys "compressId", "srcFilePath", "destFilePath",
    /// "compressLevel" (int) and "targetSize" (`QSize`). Without a key: empty, 0, or no size.
    void compressBatchGifs(const QVariant& value);
    /// Runs on the caller's thread and returns the result; no signal. The id has no meaning here.
    bool compressGifSync(const QString& compressId, const QString& srcFilePath, const QString& destFilePath,
                         GifCompressLevel level, const QSize& targetSize);
    /// As `compressGifSync`, to H.264 at the source's size; odd sides lose one pixel.
    bool gifTranscodeToMP4(const QString& compressId, const QString& srcFilePath,
                           const QString& destFilePath);

    /// The request that runs ends and reports false; one that waits goes without a report.
    void cancelCompressGif(const QString& compressId);
    void cancelBatchGifs(const QList<QString>& compressIds);
    /// Empties the queue and ends what runs, on the synchronous path, too. None of them reports.
    void cancelAllCompressGifs();
    /// Ends what runs on the synchronous path, whatever its id.
    void cancelCompressGifSync(const QString& compressId);

Q_SIGNALS:
    void sigCompressComplete(QString compressId, bool ret);

public Q_SLOTS:
    /// The worker's result for the head of the queue.
    void slotCompressResult(bool ret);

private:
    static bool checkPath(const QString& srcFilePath, const QString& destFilePath);
    void handleCompress();
    CompressGif* compresser();
    void removeCompressGif(const QString& compressId);
    bool runSync(const GifHandlerContextPtr& context);
    /// Cancels everything and waits.
    void end();

    /// The head is the request that runs.
    QList<GifHandlerContextPtr> m_queue;
    /// Ids in the queue.
    QSet<QString> m_ids;
    /// Lives on `m_thread`, made with the first request; only its slot is called, by posted calls.
    CompressGif* m_worker = nullptr;
    QThread* m_thread = nullptr;
    /// Has no thread of its own.
    const std::unique_ptr<CompressGif> m_syncCompress;
    /// Held while `m_syncCompress` runs.
    QMutex m_syncMutex;
    /// The run whose result the head of the queue waits for.
    const std::unique_ptr<multimedia::CurrentRequest> m_run;
    std::unique_ptr<multimedia::ProcessEnd> m_processEnd;
};
