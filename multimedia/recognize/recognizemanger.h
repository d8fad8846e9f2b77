#pragma once

#include "multimedia/base/currentrequest.h"
#include "multimedia/recognize/recognizecontext.h"

#include <QtCore/QObject>
#include <QtCore/QQueue>
#include <QtCore/QSet>
#include <QtCore/QSharedPointer>
#include <QtCore/QStringList>

namespace speechRecognize {

class SpeechRecognizer;

/// The queue in front of the speech recogniser: first in, first out, one request at a time.
///
/// The head of the queue runs, or waits for the user's authorisation, which is asked for whenever a request
/// enters an empty queue. Texts and ends are told by `RecordEngine`'s signals, with the id of the head, which
/// they belong to: what is still on its way of an earlier task is dropped.
///
/// All operations on the thread that the object lives on, which is the GUI thread. What the recogniser tells
/// on other threads comes by queued connections; nothing else protects the queue.
class RecognizeManger : public QObject
{
    Q_OBJECT

public:
    explicit RecognizeManger(QObject* parent = nullptr);

    /// Appends a request; does nothing for a null one, or when its id is queued already.
    void enqueueRecognize(const QSharedPointer<RecognizeContext>& context);
    void dequeueRecognize();
    /// The head of the queue, null when it is empty.
    QSharedPointer<RecognizeContext> header() const;
    bool existRecognize(const QString& recognizeId) const;
    /// Starts the head.
    void handleRecognize();
    /// Asks for authorisation, which starts the head.
    void startRecognize();
    /// Cancels the running task.
    void stopRecognize();
    /// Forgets every request.
    void clearRecognize();
    /// A request that waits leaves without a report. The running one stays until its end is reported, but its
    /// id may be queued again at once.
    void cancelRecognize(const QString& recognizeId);
    void cancelBatchRecognize(const QStringList& recognizeIds);
    /// Forgets every request and cancels the running task; nothing is reported.
    void cancelAllRecognize();
    /// Cancels the running task, whose end is not told any more, and deletes the recogniser.
    void releaseRecognize();
    /// Made on first use.
    SpeechRecognizer* speechRecognizer();

Q_SIGNALS:
    /// Answer to the request for authorisation.
    void sigRequestedAuthorization(bool bRet);

public Q_SLOTS:
    void addRecognizeFile(const QString& recognizeId, const QString& path,
                          const QString& language = QString());
    void addRecognizeBuffer(const QString& recognizeId, const QVariantMap& pcmInfo,
                            const QString& language = QString());
    /// The text so far of the head.
    void speechRecognizedResult(const QString& speechRecognizedResult);
    /// The head has ended; starts the next one.
    void recognizeCompleted(bool recognizeComplated);

private:
    void handleAuthorization(bool authorized);
    /// Nothing more is told of the running task, nor of the question for authorisation.
    void abandonRecognize();

    SpeechRecognizer* m_recognizer = nullptr; ///< a child
    QQueue<QSharedPointer<RecognizeContext>> m_queue;
    QSet<QString> m_ids;               ///< ids in `m_queue`, but for a cancelled head's
    multimedia::CurrentRequest m_task; ///< that the head waits for
};

} // namespace speechRecognize
