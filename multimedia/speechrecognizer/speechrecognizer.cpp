#include "multimedia/speechrecognizer/speechrecognizer.h"

#include "multimedia/devicemgr/permission.h"
#include "multimedia/recognize/recognizemanger.h"
#include "quillon/util.h"

#include <QtCore/QLocale>
#include <QtCore/QMap>
#include <QtCore/QtDebug>

#include <mutex>

namespace speechRecognize {

namespace {

// The system whose users are asked before speech is recognised.
constexpr int kAskingMajor = 10;
constexpr int kAskingMinor = 15;

const QMap<QString, PcmAudio::Format> g_pcmFormat = {
    {QStringLiteral("PCMFormatFloat32"), PcmAudio::Format::Float32},
    {QStringLiteral("PCMFormatFloat64"), PcmAudio::Format::Float64},
    {QStringLiteral("PCMFormatInt16"), PcmAudio::Format::Int16},
    {QStringLiteral("PCMFormatInt32"), PcmAudio::Format::Int32},
};

/// Guards what follows. Taken before any lock of the service's.
std::mutex g_mutex;
RecognizeManger* m_parent = nullptr;
/// Counts the tasks started and abandoned, and the recognisers made and gone. What was asked for at an
/// earlier count is nobody's any more.
quint64 g_count = 0;
SpeechService::Task g_RecognizeTask = 0;
qint64 lastSegmentCount = 0;
QString g_recognizeResult; ///< all text so far
QString g_cacheResult;     ///< the text of finished utterances

void cancelTask()
{
    if (g_RecognizeTask)
        SpeechService::instance().cancel(g_RecognizeTask);
    g_RecognizeTask = 0;
}

void clearText()
{
    g_recognizeResult.clear();
    g_cacheResult.clear();
    lastSegmentCount = 0;
}

/// Starts a task by `start`, which is given the handler of its results, in the place of one that still runs.
template<typename Start>
void startTask(SpeechRecognizer* recognizer, Start start)
{
    const std::lock_guard lock(g_mutex);
    cancelTask();
    g_RecognizeTask =
        start([recognizer, count = ++g_count](const SpeechResult& result, const std::string& error) {
            const std::lock_guard handler_lock(g_mutex);
            if (count == g_count)
                handleRecognizeResult(result, error, recognizer);
        });
    if (!g_RecognizeTask)
        Q_EMIT recognizer->sigRecognizeComplete(true);
}

} // namespace

SpeechRecognizer::SpeechRecognizer(QObject* parent)
    : QObject(parent)
{
    const std::lock_guard lock(g_mutex);
    m_parent = qobject_cast<RecognizeManger*>(parent);
    ++g_count;
}

SpeechRecognizer::~SpeechRecognizer()
{
    const std::lock_guard lock(g_mutex);
    cancelTask();
    m_parent = nullptr;
    ++g_count;
}

void SpeechRecognizer::requestSpeechRecognizerAuthorization()
{
    using Authorization = SpeechService::Authorization;
    auto status = Authorization::Restricted;
    if (multimedia::checkVersion(kAskingMajor, kAskingMinor))
        status = SpeechService::instance().authorizationStatus();

    std::unique_lock lock(g_mutex);
    if (status == Authorization::NotDetermined || status == Authorization::Denied) {
        const auto answered = [count = g_count](Authorization answer) {
            const std::lock_guard answer_lock(g_mutex);
            if (count != g_count || !m_parent)
                return;
            const bool authorized = answer == Authorization::Authorized;
            QMetaObject::invokeMethod(
                m_parent,
                [manager = m_parent, authorized] { Q_EMIT manager->sigRequestedAuthorization(authorized); },
                Qt::QueuedConnection);
        };
        lock.unlock();
        SpeechService::instance().requestAuthorization(answered);
        return;
    }
    RecognizeManger* manager = m_parent;
    lock.unlock(); // the answer starts a task
    if (manager)
        Q_EMIT manager->sigRequestedAuthorization(status == Authorization::Authorized);
}

QString getSpeechRecognizer(const QString& language)
{
    if (language.isEmpty() || language.compare(QLocale::system().name(), Qt::CaseInsensitive) == 0)
        return {};
    return SpeechService::instance().isAvailable(language.toStdString()) ? language : QString();
}

void SpeechRecognizer::recognizeAudioFile(const QString& path, const QString& language)
{
    if (path.isEmpty() || !Util::fileExists(path)) {
        qWarning().noquote() << "Path is not exist:" << path;
        Q_EMIT sigRecognizeComplete(false);
        return;
    }
    initParam();
    const QString locale = getSpeechRecognizer(language);
    startTask(this, [&](SpeechService::ResultHandler handler) {
        return SpeechService::instance().recognizeFile(path.toStdString(), locale.toStdString(),
                                                       std::move(handler));
    });
}

bool checkParamIsValid(const QVariantMap& pcmMap)
{
    if (!pcmMap.contains(QStringLiteral("pcmData")) || !pcmMap.contains(QStringLiteral("pcmInfo")))
        return false;
    const QVariantMap info = pcmMap[QStringLiteral("pcmInfo")].toMap();
    return info.contains(QStringLiteral("sampleFormat")) && info.contains(QStringLiteral("sampleRate")) &&
           info.contains(QStringLiteral("channels")) && info.contains(QStringLiteral("interleaved"));
}

void SpeechRecognizer::recognizeAudioBuffer(const QVariantMap& pcmMap, const QString& language)
{
    if (!checkParamIsValid(pcmMap)) {
        qWarning("Parameter is invalid");
        Q_EMIT sigRecognizeComplete(false);
        return;
    }
    initParam();
    const QString locale = getSpeechRecognizer(language);
    const QVariantMap info = pcmMap[QStringLiteral("pcmInfo")].toMap();
    const QString format = info[QStringLiteral("sampleFormat")].toString();
    if (!g_pcmFormat.contains(format)) {
        qWarning("PCMFormat is not support");
        Q_EMIT sigRecognizeComplete(false);
        return;
    }
    const auto bytes = std::make_shared<const QByteArray>(pcmMap[QStringLiteral("pcmData")].toByteArray());
    PcmAudio audio;
    audio.format = g_pcmFormat[format];
    audio.sample_rate = info[QStringLiteral("sampleRate")].toDouble();
    audio.channels = info[QStringLiteral("channels")].toInt();
    audio.interleaved = info[QStringLiteral("interleaved")].toBool();
    audio.data = reinterpret_cast<const std::uint8_t*>(bytes->constData());
    audio.size = std::size_t(bytes->size());
    audio.owner = bytes;
    startTask(this, [&](SpeechService::ResultHandler handler) {
        return SpeechService::instance().recognizeBuffer(audio, locale.toStdString(), std::move(handler));
    });
}

void handleRecognizeResult(const SpeechResult& result, const std::string& error, SpeechRecognizer* recognizer)
{
    if (error.empty()) {
        if (result.segment_count < lastSegmentCount)
            g_cacheResult = g_recognizeResult;
        g_recognizeResult = g_cacheResult + QString::fromStdString(result.text);
        Q_EMIT recognizer->sigRecognizeResult(g_recognizeResult);
        lastSegmentCount = result.segment_count;
    }
    if (error.empty() && !result.is_final)
        return;
    Q_EMIT recognizer->sigRecognizeComplete(true);
    cancelTask();
}

void SpeechRecognizer::initParam()
{
    const std::lock_guard lock(g_mutex);
    clearText();
}

void SpeechRecognizer::stopRecognize()
{
    const std::lock_guard lock(g_mutex);
    cancelTask();
}

void SpeechRecognizer::abandon()
{
    const std::lock_guard lock(g_mutex);
    cancelTask();
    ++g_count;
}

void SpeechRecognizer::recognizeComplete()
{
    Q_EMIT sigRecognizeComplete(true);
    stopRecognize();
}

} // namespace speechRecognize
