#pragma once

#include "multimedia/audiorecorder/recordconfig.h"
#include "multimedia/multimedia_global.h"

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QStringList>
#include <QtCore/QVariantList>
#include <QtCore/QVariantMap>

#include <memory>

class AudioRecorder;
namespace multimedia {
class ProcessEnd;
}
namespace speechRecognize {
class RecognizeManger;
}

/// Voice recording and speech recognition, as QML sees them.
///
/// The engine names the files of recordings, milliseconds since 1970 with the extension aac, in
/// `storagePath`, and reports through its signals. Failures are results only; the reason stands in the log.
///
/// GUI thread. The object lives until the process ends.
class MULTIMEDIA_EXPORT RecordEngine : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString storagePath READ storagePath WRITE setStoragePath NOTIFY storagePathChanged)
    Q_PROPERTY(RecordConfig* config READ config WRITE setConfig NOTIFY configChanged)
    Q_PROPERTY(int state READ state WRITE setState NOTIFY stateChanged)

public:
    ~RecordEngine() override;

    static RecordEngine* instance();
    /// Ends what runs, without saving. The object stays and can be used again.
    void releaseInstance();
    /// Forgets all recognitions and cancels the running one, without a report.
    void releaseRecognizeMgr();
    /// The queue of recognitions, made on first use.
    speechRecognize::RecognizeManger* recognizeMgr();

    QString storagePath() const { return m_storagePath; }
    RecordConfig* config() const { return m_config; }
    int state() const { return m_state; }

Q_SIGNALS:
    /// Levels of the voice bands, 0 to 1, while a recording runs.
    void voiceAmplitudeChanged(QVariantList valus);
    /// While a recording runs, the time recorded in ms; once more at its end, with `isStop`, the length of
    /// the result in ms.
    void updateRecordInfo(qlonglong duration, bool isStop = true);
    /// The whole text so far of a recognition.
    void speechRecognizedResultChanged(QString recognizeId, QString speechRecognizedResult);
    /// A recognition has ended. False when it could not be started: the file is missing, or the samples are
    /// not described as they must be.
    void recognizeCompletedChanged(QString recognizeId, bool recognizeCompleted);
    /// A recording is complete: "sample" up to 1000 values of 0 to 1 for its bars, "filePath", and "size" in
    /// bytes, 0 when there is no file.
    void recordFinished(QVariantMap retMap);
    void storagePathChanged(QString storagePath);
    void configChanged(RecordConfig* config);
    void stateChanged(QString filePath, int state);
    void notifyInterval(QString filePath);

public Q_SLOTS:
    /// Makes the folder if need be; keeps the path even when it cannot be made.
    void setStoragePath(const QString& storagePath);
    /// Does not take ownership of `config` before the engine itself ends, and lets the earlier one be.
    void setConfig(RecordConfig* config);
    void setState(int state);
    /// @param changerType  0 none, 1 high voice, 2 low voice, 3 tremolo, 5 half speed, 8 double speed, any
    /// other
    ///                     the way of a changed voice without a change
    bool startRecord(int changerType = 0);
    /// Without `isSave` the recording and its file are dropped; a file that `recordFinished` has told of is
    /// the host's and stays. With it, `recordFinished` comes at once, with a changed voice later.
    bool stopRecord(bool isSave = true);
    /// Whether the device, or any for an empty name, can be recorded from; false before the first recording.
    bool hasVisibleAudioInputDev(const QString& devName = QString());
    bool isRecording();
    /// Drops the recording as `stopRecord(false)` does, and forgets the sound of the last one.
    void cancelRecord();
    /// Bands of `voiceAmplitudeChanged`, 1 to 1200.
    void setSpectrumNum(int num);
    /// Up to `sampleNum` values for the bars of the last recording, 0 to 1.
    QVariantList getSampleData(int sampleNum = 30);
    /// Stretches or shrinks a list of values. Empty for a `dstCount` of 0 or less, or over a million.
    QList<double> convertSamples(int dstCount, QList<double> srcSamples);
    /// Decodes a file, blocking: "pcmData" and "pcmInfo" as `CMediaDecode` gives them, or an empty map.
    QVariantMap convertToPCM(const QString& filePath);

    // Speech to text. Requests wait in one queue and run one after another; a second one with an id that is
    // queued is not heard. Where there is no recogniser the queue is emptied without a report.

    /// `recognizeFile` for each map of a list, by the keys "recognizeId", "filePath" and, if it is there,
    /// "language". Maps without the first two are passed over.
    void recognizeBatchFiles(const QVariant& files);
    /// @param language  a locale as "en_US"; one that is not offered, and an empty one, stand for the
    /// system's
    void recognizeFile(const QString& recognizeId, const QString& filePath,
                       const QString& language = QString());
    /// @param pcmInfo  a map as `convertToPCM` gives it
    void recognizeBuffer(const QString& recognizeId, const QVariantMap& pcmInfo,
                         const QString& language = QString());
    /// The request that runs ends and reports true; one that waits goes without a report.
    void cancelRecognize(const QString& recognizeId);
    void cancelBatchRecognize(const QStringList& recognizeIds);
    /// Forgets every request; none of them reports.
    void cancelAllRecognize();
    /// What there is to recognise with: maps of "recognizer", a name for people, and "language", a locale as
    /// "en_US" or "en". The first choice for a language comes first.
    QVariantList speechModels();
    /// Such a map of what the last recognition that has begun was made with; empty before the first one, and
    /// when there was none for its language.
    QVariantMap answeringSpeechModel();
    void slotRecordFinish();

private:
    RecordEngine();

    void initAudioRecoder();
    void checkStoragePath(const QString& path);
    void removeFile();

    std::unique_ptr<AudioRecorder> m_recorder;
    QString m_storagePath;
    QPointer<RecordConfig> m_config; ///< deleted with the engine, whoever made it
    int m_state = 0;
    QString m_filePath;
    bool m_ownsFile = false; ///< a recording has begun that no `recordFinished` has told of
    speechRecognize::RecognizeManger* m_recognizeMgr = nullptr; ///< a child
    std::unique_ptr<multimedia::ProcessEnd> m_processEnd;
};
