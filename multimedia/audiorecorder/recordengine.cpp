#include "multimedia/audiorecorder/recordengine.h"

#include "multimedia/audiorecorder/audiorecorder.h"
#include "multimedia/base/processend.h"
#include "multimedia/mediahandler/cmediadecode.h"
#include "multimedia/recognize/recognizemanger.h"
#include "multimedia/speechrecognizer/speechservice.h"
#include "quillon/util.h"

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QStandardPaths>
#include <QtCore/QtDebug>

#include <utility>

using speechRecognize::SpeechModel;
using speechRecognize::SpeechService;

namespace {

constexpr int kFinishedSamples = 1000;
constexpr int kMaxSamples = 1000000;

QList<double> shrink(int count, const QList<double>& source)
{
    const int step = source.size() / count;
    QList<double> result;
    result.reserve(count);
    for (int i = 0; result.size() < count; i += step)
        result.append(source[i]);
    return result;
}

/// Fills random values into the first gap when more are wanted than there are gaps, and one midpoint a gap
/// from then on. May run out of gaps before the list is full.
QList<double> grow(int count, const QList<double>& source)
{
    const int size = source.size();
    const int missing = count - size;
    int gap = size / missing;
    QList<double> result = source;
    const auto insert = [&result](int position, double value) {
        result.insert(qMin(position, result.size()), value);
    };
    for (int i = 0; i < size && result.size() < count; ++i) {
        const double next = source[qMin(i + 1, size - 1)];
        if (gap > 0) {
            insert(int(qMin<qint64>(qint64(i) * gap + 1, result.size())), (source[i] + next) * 0.5);
            continue;
        }
        const int quotient = missing / size;
        gap = quotient + 1;
        for (int j = 0; j < gap && result.size() < count; ++j)
            insert((quotient + 2) * i + 1 + j, Util::generateRand(source[i], next));
    }
    return result;
}

QVariantMap described(const SpeechModel& model)
{
    if (model.recognizer.empty())
        return {};
    return {{QStringLiteral("recognizer"), QString::fromStdString(model.recognizer)},
            {QStringLiteral("language"), QString::fromStdString(model.language)}};
}

} // namespace

RecordEngine* RecordEngine::instance()
{
    static RecordEngine engine;
    return &engine;
}

RecordEngine::RecordEngine()
    : m_config(new RecordConfig(this))
{
    checkStoragePath(QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation) +
                     QLatin1String("/audio"));
    initAudioRecoder();
    m_processEnd = std::make_unique<multimedia::ProcessEnd>([this] {
        m_recorder->end();
        releaseRecognizeMgr();
    });
}

RecordEngine::~RecordEngine()
{
    releaseRecognizeMgr();
    delete m_config;
}

void RecordEngine::initAudioRecoder()
{
    if (m_recorder)
        return;
    m_recorder = std::make_unique<AudioRecorder>();
    connect(m_recorder.get(), &AudioRecorder::calcutedFFFTComplated, this,
            &RecordEngine::voiceAmplitudeChanged, Qt::QueuedConnection);
    connect(m_recorder.get(), &AudioRecorder::recordFinish, this, &RecordEngine::slotRecordFinish);
}

void RecordEngine::checkStoragePath(const QString& path)
{
    if (!QDir(path).exists() && !QDir().mkpath(path))
        qWarning("cannot make the folder %s", qUtf8Printable(path));
    m_storagePath = path;
}

void RecordEngine::releaseInstance()
{
    m_recorder->stopRecord(false);
    releaseRecognizeMgr();
}

void RecordEngine::releaseRecognizeMgr()
{
    if (!m_recognizeMgr)
        return;
    m_recognizeMgr->releaseRecognize();
    m_recognizeMgr->clearRecognize(); // or a report on its way starts the next one
    m_recognizeMgr->deleteLater();
    m_recognizeMgr = nullptr;
}

speechRecognize::RecognizeManger* RecordEngine::recognizeMgr()
{
    if (!m_recognizeMgr)
        m_recognizeMgr = new speechRecognize::RecognizeManger(this);
    return m_recognizeMgr;
}

void RecordEngine::setStoragePath(const QString& storagePath)
{
    if (m_storagePath == storagePath)
        return;
    checkStoragePath(storagePath);
    Q_EMIT storagePathChanged(m_storagePath);
}

void RecordEngine::setConfig(RecordConfig* config)
{
    if (m_config == config)
        return;
    m_config = config;
    Q_EMIT configChanged(m_config);
}

void RecordEngine::setState(int state)
{
    m_state = state;
    Q_EMIT stateChanged(m_filePath, m_state);
}

bool RecordEngine::startRecord(int changerType)
{
    m_recorder->setRecordPath(
        QStringLiteral("%1/%2.aac").arg(m_storagePath, QString::number(QDateTime::currentMSecsSinceEpoch())));
    if (!m_recorder->startRecord(m_config, changerType))
        return false;
    m_ownsFile = true;
    return true;
}

bool RecordEngine::stopRecord(bool isSave)
{
    const bool stopped = m_recorder->stopRecord(isSave);
    if (!isSave) {
        removeFile();
        return true;
    }
    if (!stopped)
        return false;
    if (!m_recorder->isChangeVoice())
        slotRecordFinish();
    return true;
}

bool RecordEngine::isRecording()
{
    return m_recorder->state() == RECORDER_RECORDING;
}

bool RecordEngine::hasVisibleAudioInputDev(const QString& devName)
{
    return m_recorder->hasVisibleAudioInputDev(devName);
}

void RecordEngine::cancelRecord()
{
    m_recorder->stopRecord(false);
    removeFile();
    m_recorder->clearData();
}

void RecordEngine::removeFile()
{
    if (std::exchange(m_ownsFile, false))
        Util::deleteFile(m_recorder->recordPath());
}

void RecordEngine::setSpectrumNum(int num)
{
    m_recorder->setSpectrumNum(num);
}

QVariantList RecordEngine::getSampleData(int sampleNum)
{
    return m_recorder->getSampleData(sampleNum);
}

void RecordEngine::slotRecordFinish()
{
    const QString path = m_recorder->recordPath();
    m_ownsFile = false;
    Q_EMIT recordFinished({{QStringLiteral("sample"), m_recorder->getSampleData(kFinishedSamples)},
                           {QStringLiteral("filePath"), path},
                           {QStringLiteral("size"), QFileInfo(path).size()}});
}

QList<double> RecordEngine::convertSamples(int dstCount, QList<double> srcSamples)
{
    const int size = srcSamples.size();
    if (size == 0 || size == dstCount)
        return srcSamples;
    if (dstCount <= 0)
        return {};
    if (dstCount > kMaxSamples) {
        qWarning("convertSamples: %d values are too many", dstCount);
        return {};
    }
    return dstCount < size ? shrink(dstCount, srcSamples) : grow(dstCount, srcSamples);
}

QVariantMap RecordEngine::convertToPCM(const QString& filePath)
{
    if (filePath.isEmpty() || !Util::fileExists(filePath))
        return {};
    CMediaDecode decode;
    const QByteArray pcm = decode.decodeAudio(filePath);
    if (pcm.isEmpty())
        return {};
    return {{QStringLiteral("pcmData"), pcm}, {QStringLiteral("pcmInfo"), decode.audioInfo()}};
}

void RecordEngine::recognizeBatchFiles(const QVariant& files)
{
    const QString id = QStringLiteral("recognizeId");
    const QString path = QStringLiteral("filePath");
    for (const QVariant& file : files.toList()) {
        const QVariantMap map = file.toMap();
        if (map.contains(id) && map.contains(path))
            recognizeMgr()->addRecognizeFile(map[id].toString(), map[path].toString(),
                                             map[QStringLiteral("language")].toString());
    }
}

void RecordEngine::recognizeFile(const QString& recognizeId, const QString& filePath, const QString& language)
{
    recognizeMgr()->addRecognizeFile(recognizeId, filePath, language);
}

void RecordEngine::recognizeBuffer(const QString& recognizeId, const QVariantMap& pcmInfo,
                                   const QString& language)
{
    recognizeMgr()->addRecognizeBuffer(recognizeId, pcmInfo, language);
}

void RecordEngine::cancelRecognize(const QString& recognizeId)
{
    recognizeMgr()->cancelRecognize(recognizeId);
}

void RecordEngine::cancelBatchRecognize(const QStringList& recognizeIds)
{
    recognizeMgr()->cancelBatchRecognize(recognizeIds);
}

void RecordEngine::cancelAllRecognize()
{
    recognizeMgr()->cancelAllRecognize();
}

QVariantList RecordEngine::speechModels()
{
    QVariantList models;
    for (const auto& model : SpeechService::instance().models())
        models += described(model);
    return models;
}

QVariantMap RecordEngine::answeringSpeechModel()
{
    return described(SpeechService::instance().answering());
}
