#include "multimedia/recognize/recognizemanger.h"

#include "multimedia/audiorecorder/recordengine.h"
#include "multimedia/speechrecognizer/speechrecognizer.h"

#include <algorithm>

namespace speechRecognize {

RecognizeManger::RecognizeManger(QObject* parent)
    : QObject(parent)
{
    connect(this, &RecognizeManger::sigRequestedAuthorization, this, &RecognizeManger::handleAuthorization);
}

void RecognizeManger::addRecognizeFile(const QString& recognizeId, const QString& path,
                                       const QString& language)
{
    enqueueRecognize(
        QSharedPointer<RecognizeContext>::create(RecognizeContext{recognizeId, path, language, {}}));
}

void RecognizeManger::addRecognizeBuffer(const QString& recognizeId, const QVariantMap& pcmInfo,
                                         const QString& language)
{
    enqueueRecognize(
        QSharedPointer<RecognizeContext>::create(RecognizeContext{recognizeId, {}, language, pcmInfo}));
}

void RecognizeManger::enqueueRecognize(const QSharedPointer<RecognizeContext>& context)
{
    if (!context || existRecognize(context->recognizeId))
        return;
    m_queue.enqueue(context);
    m_ids.insert(context->recognizeId);
    if (m_queue.size() == 1)
        startRecognize();
}

void RecognizeManger::dequeueRecognize()
{
    if (m_queue.isEmpty())
        return;
    m_ids.remove(m_queue.dequeue()->recognizeId);
}

QSharedPointer<RecognizeContext> RecognizeManger::header() const
{
    return m_queue.value(0);
}

bool RecognizeManger::existRecognize(const QString& recognizeId) const
{
    return m_ids.contains(recognizeId);
}

void RecognizeManger::startRecognize()
{
    speechRecognizer()->requestSpeechRecognizerAuthorization();
}

void RecognizeManger::handleAuthorization(bool authorized)
{
    if (authorized)
        handleRecognize();
    else
        cancelAllRecognize();
}

void RecognizeManger::handleRecognize()
{
    const QSharedPointer<RecognizeContext> head = header();
    if (!head)
        return;
    m_task.begin();
    if (head->path.isEmpty())
        speechRecognizer()->recognizeAudioBuffer(head->pcmInfo, head->language);
    else
        speechRecognizer()->recognizeAudioFile(head->path, head->language);
}

void RecognizeManger::speechRecognizedResult(const QString& speechRecognizedResult)
{
    if (const QSharedPointer<RecognizeContext> head = header())
        Q_EMIT RecordEngine::instance()->speechRecognizedResultChanged(head->recognizeId,
                                                                       speechRecognizedResult);
}

void RecognizeManger::recognizeCompleted(bool recognizeComplated)
{
    const QSharedPointer<RecognizeContext> head = header();
    if (!head)
        return;
    Q_EMIT RecordEngine::instance()->recognizeCompletedChanged(head->recognizeId, recognizeComplated);
    if (header() != head)
        return; // the receiver has cancelled all, and perhaps begun anew
    dequeueRecognize();
    handleRecognize();
}

void RecognizeManger::stopRecognize()
{
    if (m_recognizer)
        m_recognizer->stopRecognize();
}

void RecognizeManger::clearRecognize()
{
    m_queue.clear();
    m_ids.clear();
}

void RecognizeManger::cancelRecognize(const QString& recognizeId)
{
    if (recognizeId.isEmpty())
        return;
    const auto has_id = [&](const auto& context) { return context->recognizeId == recognizeId; };
    const auto found = std::find_if(m_queue.begin(), m_queue.end(), has_id);
    if (found != m_queue.end() && found == m_queue.begin())
        stopRecognize();
    else if (found != m_queue.end())
        m_queue.erase(found);
    m_ids.remove(recognizeId);
}

void RecognizeManger::cancelBatchRecognize(const QStringList& recognizeIds)
{
    if (!header())
        return;
    for (const QString& id : recognizeIds)
        cancelRecognize(id);
}

void RecognizeManger::cancelAllRecognize()
{
    clearRecognize();
    abandonRecognize();
}

void RecognizeManger::abandonRecognize()
{
    if (m_recognizer)
        m_recognizer->abandon();
    m_task.end();
}

void RecognizeManger::releaseRecognize()
{
    abandonRecognize();
    delete m_recognizer;
    m_recognizer = nullptr;
}

SpeechRecognizer* RecognizeManger::speechRecognizer()
{
    if (m_recognizer)
        return m_recognizer;
    m_recognizer = new SpeechRecognizer(this);
    // On the service's thread. While a report is made no other task begins, so its number is the present one.
    connect(
        m_recognizer, &SpeechRecognizer::sigRecognizeResult, this,
        [this](const QString& text) {
            m_task.post(m_task.number(), this, [this, text] { speechRecognizedResult(text); });
        },
        Qt::DirectConnection);
    connect(
        m_recognizer, &SpeechRecognizer::sigRecognizeComplete, this,
        [this](bool is_success) {
            m_task.post(m_task.number(), this, [this, is_success] { recognizeCompleted(is_success); });
        },
        Qt::DirectConnection);
    return m_recognizer;
}

} // namespace speechRecognize
