#pragma once

#include "multimedia/speechrecognizer/speechservice.h"

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QVariantMap>

namespace speechRecognize {

/// Runs one recognition at a time in the system's speech service, and puts the texts of its utterances
/// together.
///
/// The state of the recognition is that of the namespace, behind one mutex, since the service's thread writes
/// it: there is one recogniser at a time. Operations on the thread that the object lives on.
class SpeechRecognizer : public QObject
{
    Q_OBJECT

public:
    /// @param parent  told the answers to requests for authorisation when it is a `RecognizeManger`
    explicit SpeechRecognizer(QObject* parent);
    /// Cancels the running task; nothing more is told of it.
    ~SpeechRecognizer() override;

    /// @param language  a locale as "en_US"; one that the service does not offer, and an empty one, stand for
    ///                  the system's
    void recognizeAudioFile(const QString& path, const QString& language);
    /// @param pcmMap  "pcmData", the samples as `QByteArray`, and "pcmInfo", a map of "sampleFormat" (one of
    ///                "PCMFormatFloat32", "PCMFormatFloat64", "PCMFormatInt16", "PCMFormatInt32"),
    ///                "sampleRate" in Hz, "channels" and "interleaved"
    void recognizeAudioBuffer(const QVariantMap& pcmMap, const QString& language);
    /// Cancels the running task, whose end is told when the service reports it.
    void stopRecognize();
    /// Cancels the running task, of which nothing more is told, and forgets a request for authorisation.
    void abandon();
    /// Tells the end of the running task, and cancels it.
    void recognizeComplete();
    /// Answers by the parent's `sigRequestedAuthorization`, at once where the answer is known already.
    void requestSpeechRecognizerAuthorization();
    /// Forgets the text.
    void initParam();

Q_SIGNALS:
    // Both are emitted on the service's thread, with the namespace's mutex held: connect them queued.

    /// The whole text so far.
    void sigRecognizeResult(QString result);
    /// The recognition has ended: false when it could not be started for its arguments, true in every other
    /// case.
    void sigRecognizeComplete(bool isSuccess);
};

/// The locale to ask the service for: empty, which stands for the system's, where `language` is empty, the
/// system's own, or not available.
QString getSpeechRecognizer(const QString& language);

/// Whether all keys are there. Says nothing of their values.
bool checkParamIsValid(const QVariantMap& pcmMap);

/// What the service tells of the running task: puts the text together, tells it, and tells the end after a
/// final result or an error. An error is an end like any other. On the service's thread, with the namespace's
/// mutex held.
void handleRecognizeResult(const SpeechResult& result, const std::string& error,
                           SpeechRecognizer* recognizer);

} // namespace speechRecognize
