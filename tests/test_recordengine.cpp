#include "multimedia/audiorecorder/recordengine.h"
#include "multimedia/mediahandler/cwavewriter.h"
#include "multimedia/multimediaprovider.h"
#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/mediacheck.h"
#include "tests/support/process.h"
#include "tests/support/program.h"
#include "tests/support/soundcheck.h"
#include "tests/support/soundserver.h"

#include <QtMultimedia/QAudioDeviceInfo>
#include <QtQml/QQmlComponent>
#include <QtQml/QQmlContext>
#include <QtQml/QQmlEngine>
#include <QtTest/QtTest>

#include <algorithm>
#include <cmath>
#include <memory>

/// Recordings of a real microphone, that of the private desktop.

namespace {

constexpr int kRate = 24000;
constexpr int kPatience_ms = 20'000;

bool isListed(const QString& device)
{
    const auto devices = QAudioDeviceInfo::availableDevices(QAudio::AudioInput);
    return std::any_of(devices.begin(), devices.end(),
                       [&](const QAudioDeviceInfo& info) { return info.deviceName() == device; });
}

bool hasSound(const QVariantList& bands)
{
    return std::any_of(bands.begin(), bands.end(), [](const QVariant& band) { return band.toDouble() > 0; });
}

QString writeWave(const QTemporaryDir& dir, const soundcheck::Samples& samples)
{
    QString path = dir.filePath("fed.wav");
    const QVariantMap info = {{"channels", 1}, {"sampleRate", kRate}, {"sampleFormat", "PCMFormatInt16"}};
    CWaveWriter::writeWaveFile({{"pcmData", soundcheck::bytesOf(samples)}, {"pcmInfo", info}}, path);
    return path;
}

} // namespace

class TestRecordEngine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void qml_recordsSpeech();
    void stopRecord_removesFile_whenNotSaved();
    void cancelRecord_leavesFile_thatWasReported();
    void startRecord_leavesRunningOne_alone();
    void stopRecord_reportsNothing_withoutStart();
    void storagePath_isKept_whenItCannotBeMade();
    void config_isReplaced_andForgotten();
    void convertToPCM_givesNothing_ofBadFile();
    void convertSamples_stretchesAndShrinks();
    void record_ends_whenMicrophoneVanishes();
    void record_survives_deathOfServer();

private:
    /// Waits for the first report of a running recording.
    bool runs();

    QTemporaryDir dir;
    RecordEngine* engine = nullptr;
};

void TestRecordEngine::initTestCase()
{
    engine = MultimediaProvider::instance().recordEngine();
    QVERIFY(engine->storagePath().endsWith("/audio"));
    QVERIFY(QFileInfo(engine->storagePath()).isDir());
    // The server's client has its thread from the first look at the devices on.
    QTRY_VERIFY(isListed("mic"));
}

void TestRecordEngine::cleanup()
{
    MultimediaProvider::unregist();
    engine->cancelRecord();
    const QDir folder(engine->storagePath());
    for (const QString& file : folder.entryList(QDir::Files))
        QFile::remove(folder.filePath(file));
}

bool TestRecordEngine::runs()
{
    return QSignalSpy(engine, &RecordEngine::updateRecordInfo).wait(kPatience_ms);
}

void TestRecordEngine::qml_recordsSpeech()
{
    QQmlEngine qml;
    MultimediaProvider::registType(qml);
    QQmlComponent component(&qml);
    component.setData(R"(
        import QtQml 2.15
        QtObject {
            property QtObject engine: MultimediaProvider.recordEngine
            property int device: engine.hasVisibleAudioInputDev()
            function start() { engine.setSpectrumNum(40); return engine.startRecord() }
            function stop() { return engine.stopRecord() }
            function samples() { return engine.getSampleData() }
        })",
                      {});
    const std::unique_ptr<QObject> page(component.create());
    QVERIFY2(page, qPrintable(component.errorString()));
    QCOMPARE(page->property("device").toInt(), 0);
    const auto call = [&](const char* function) {
        QVariant result;
        QMetaObject::invokeMethod(page.get(), function, Q_RETURN_ARG(QVariant, result));
        return result;
    };
    QSignalSpy finishes(engine, &RecordEngine::recordFinished);
    QSignalSpy updates(engine, &RecordEngine::updateRecordInfo);
    QSignalSpy spectra(engine, &RecordEngine::voiceAmplitudeChanged);
    QVERIFY(call("start").toBool());
    QVERIFY(engine->isRecording());
    QVERIFY(runs());
    {
        Program speech("feed-microphone", {media("speech.wav")});
        QTRY_VERIFY_WITH_TIMEOUT(!spectra.isEmpty() && hasSound(spectra.last().first().toList()),
                                 kPatience_ms);
        // The bars fall, and nothing more is told, when the speech is over.
        QTRY_VERIFY_WITH_TIMEOUT(speech.state() == QProcess::NotRunning &&
                                     !hasSound(spectra.last().first().toList()),
                                 kPatience_ms);
    }
    for (const QList<QVariant>& told : spectra)
        QCOMPARE(told.first().toList().size(), 41);
    spectra.clear();
    QVERIFY(runs());
    QVERIFY(runs());
    QCOMPARE(spectra.count(), 0);
    QVERIFY(call("stop").toBool());
    QVERIFY(!engine->isRecording());

    QCOMPARE(finishes.size(), 1);
    const QVariantMap finished = finishes.first().first().toMap();
    QCOMPARE(finished.keys(), (QStringList{"filePath", "sample", "size"}));
    const QString path = finished.value("filePath").toString();
    QCOMPARE(QFileInfo(path).path(), engine->storagePath());
    QVERIFY(QRegularExpression("/[0-9]{13}\\.aac$").match(path).hasMatch());
    QCOMPARE(finished.value("size").toLongLong(), QFileInfo(path).size());
    const QVariantList samples = finished.value("sample").toList();
    QCOMPARE(samples.size(), 1000);
    for (const QVariant& sample : samples)
        QVERIFY(sample.toDouble() >= 0 && sample.toDouble() <= 1);
    QCOMPARE(call("samples").toList().size(), 30);
    for (int i = 0; i < updates.size(); ++i) {
        QVERIFY(i == 0 || updates[i][0].toLongLong() >= updates[i - 1][0].toLongLong());
        QCOMPARE(updates[i][1].toBool(), i + 1 == updates.size()); // it has stopped
    }

    QCOMPARE(mediacheck::decodeErrors(path), QString());
    QCOMPARE(contentOf(path).left(2).toHex(), QByteArray("fff1"));
    const auto recorded = mediacheck::decodeAudio(path, kRate);
    // Up to three frames still waited, or more on a busy machine, and one more is the encoder's.
    const double missing_ms = updates.last().first().toDouble() - double(recorded.size()) * 1000 / kRate;
    QVERIFY2(std::abs(missing_ms) < 600, qPrintable(QString::number(missing_ms)));
    auto fed = mediacheck::decodeAudio(media("speech.wav"), kRate);
    fed.resize(fed.size() - kRate / 2); // of silence, the end of which has not reached the file
    const double correlation = soundcheck::bestCorrelation(recorded, fed);
    qInfo("correlation with what was fed: %.4f", correlation);
    QVERIFY(correlation > 0.9);
}

void TestRecordEngine::stopRecord_removesFile_whenNotSaved()
{
    QSignalSpy finished(engine, &RecordEngine::recordFinished);
    for (const int type : {0, 3}) {
        QVERIFY(engine->startRecord(type));
        QVERIFY(type != 0 || runs());
        QCOMPARE(QDir(engine->storagePath()).entryList(QDir::Files).size(), 1);
        QVERIFY(engine->stopRecord(false));
        QCOMPARE(QDir(engine->storagePath()).entryList(QDir::Files).size(), 0);
        QCOMPARE(engine->getSampleData().size(), type == 0 ? 30 : 0);
    }
    QVERIFY(engine->startRecord());
    QVERIFY(runs());
    engine->cancelRecord();
    QCOMPARE(QDir(engine->storagePath()).entryList(QDir::Files).size(), 0);
    QVERIFY(engine->getSampleData().isEmpty());
    QCOMPARE(finished.count(), 0);
}

void TestRecordEngine::cancelRecord_leavesFile_thatWasReported()
{
    QSignalSpy finished(engine, &RecordEngine::recordFinished);
    QVERIFY(engine->startRecord());
    QVERIFY(runs());
    QVERIFY(engine->stopRecord());
    const QString path = finished.first().first().toMap().value("filePath").toString();
    engine->cancelRecord();
    QVERIFY(engine->stopRecord(false));
    QVERIFY(QFileInfo(path).size() > 0);
    QVERIFY(QFile::remove(path));
}

void TestRecordEngine::startRecord_leavesRunningOne_alone()
{
    QSignalSpy finished(engine, &RecordEngine::recordFinished);
    QVERIFY(engine->startRecord());
    const QStringList files = QDir(engine->storagePath()).entryList(QDir::Files);
    QVERIFY(runs());
    QVERIFY(!engine->startRecord());
    QVERIFY(!engine->startRecord(1));
    QVERIFY(engine->isRecording());
    QVERIFY(engine->stopRecord());
    QCOMPARE(QDir(engine->storagePath()).entryList(QDir::Files), files);
    const QVariantMap map = finished.last().first().toMap();
    QCOMPARE(QFileInfo(map.value("filePath").toString()).fileName(), files.first());
    QVERIFY(map.value("size").toLongLong() > 0);
}

void TestRecordEngine::stopRecord_reportsNothing_withoutStart()
{
    QSignalSpy finished(engine, &RecordEngine::recordFinished);
    QVERIFY(engine->stopRecord());
    QCOMPARE(finished.count(), 1);
    const QVariantMap map = finished.first().first().toMap();
    QVERIFY(map.value("sample").toList().isEmpty());
    QCOMPARE(map.value("size").toLongLong(), 0);
    QVERIFY(engine->stopRecord(false));
    engine->cancelRecord();
    QVERIFY(!engine->isRecording());
}

void TestRecordEngine::storagePath_isKept_whenItCannotBeMade()
{
    const QString good = engine->storagePath();
    const QString bad = "/proc/none/audio";
    QSignalSpy changed(engine, &RecordEngine::storagePathChanged);
    QSignalSpy finished(engine, &RecordEngine::recordFinished);
    const LogCapture log;
    engine->setStoragePath(bad);
    engine->setStoragePath(bad);
    QCOMPARE(changed.count(), 1);
    QCOMPARE(engine->storagePath(), bad);
    QCOMPARE(log.count(bad), 1);
    QVERIFY(engine->startRecord());
    QVERIFY(runs());
    QVERIFY(engine->stopRecord());
    QCOMPARE(finished.last().first().toMap().value("size").toLongLong(), 0);

    engine->setStoragePath(good);
    QVERIFY(engine->startRecord());
    QVERIFY(runs());
    QVERIFY(engine->stopRecord());
    QVERIFY(finished.last().first().toMap().value("size").toLongLong() > 0);
}

void TestRecordEngine::config_isReplaced_andForgotten()
{
    RecordConfig* own = engine->config();
    QSignalSpy changed(engine, &RecordEngine::configChanged);
    {
        RecordConfig other;
        QCOMPARE(other.inputDevice(), QString("Default"));
        QCOMPARE(other.sampleRate(), 24000);
        QCOMPARE(other.channels(), 1);
        engine->setConfig(&other);
        engine->setConfig(&other);
        QVERIFY(engine->startRecord());
    }
    // It has taken its configuration with it, not the recording.
    QVERIFY(runs());
    QVERIFY(engine->stopRecord(false));
    QVERIFY(!engine->startRecord());
    engine->setConfig(own);
    QCOMPARE(changed.count(), 2);

    QSignalSpy states(engine, &RecordEngine::stateChanged);
    engine->setState(2);
    engine->setState(2);
    QCOMPARE(states.count(), 2);
    QCOMPARE(states.last(), (QList<QVariant>{QString(), 2}));
}

void TestRecordEngine::convertToPCM_givesNothing_ofBadFile()
{
    for (const QString& bad : {QString(), media("none.aac"), media("empty.wav")})
        QVERIFY2(engine->convertToPCM(bad).isEmpty(), qPrintable(bad));
}

void TestRecordEngine::convertSamples_stretchesAndShrinks()
{
    using List = QList<double>;
    constexpr double kAny = -1; // of the random values
    for (const auto& [count, source, expected] :
         {std::tuple(5, List(), List()),
          {3, {1, 2, 3}, {1, 2, 3}},
          {0, {1, 2}, {}},
          {-3, {1, 2}, {}},
          {2'000'000'000, {1, 2}, {}},
          {3, {1, 2, 3, 4, 5, 6, 7}, {1, 3, 5}},
          {1, {1, 2, 3}, {1}},
          {5, {1, 2, 3, 4}, {1, 1.5, 2, 3, 4}},
          {6, {1, 2, 3, 4}, {1, 1.5, 2, 2.5, 3, 4}},
          {6, {1, 2, 3}, {1, 1.5, 2.5, 3, 2, 3}},
          {10, {4}, {4, 4, 4, 4, 4, 4, 4, 4, 4, 4}},
          // Two random values in the first gap, then midpoints, and no gap is left for the rest.
          {8, {1, 2, 3}, {1, kAny, kAny, 2.5, 2, 3, 3}}}) {
        const InCase in_case(count, source);
        const List result = engine->convertSamples(count, source);
        QCOMPARE(result.size(), expected.size());
        for (int i = 0; i < result.size(); ++i) {
            if (expected[i] < 0)
                QVERIFY(result[i] >= source[0] && result[i] <= source[1]);
            else
                QCOMPARE(result[i], expected[i]);
        }
    }
}

void TestRecordEngine::record_ends_whenMicrophoneVanishes()
{
    // Everything else that can be recorded from hears a tone.
    const QString tone = writeWave(dir, soundcheck::tone(kRate, 1000, 1, 20000));
    const Program speakers("paplay", {"-d", "spk", tone});
    engine->config()->setInputDevice("mic");
    QSignalSpy finished(engine, &RecordEngine::recordFinished);
    QVERIFY(engine->startRecord());
    QVERIFY(runs());
    QVERIFY(runs());
    const LogCapture log;
    SoundServer::unload("module-remap-source");
    const Program room("feed-microphone", {"--loop", tone});
    QTRY_COMPARE_WITH_TIMEOUT(log.count("audio input device mic is gone"), 1, kPatience_ms);
    QVERIFY(engine->isRecording());
    QVERIFY(engine->stopRecord());
    const QString path = finished.last().first().toMap().value("filePath").toString();
    QCOMPARE(mediacheck::decodeErrors(path), QString());
    const auto recorded = mediacheck::decodeAudio(path, kRate);
    QVERIFY(!recorded.empty());
    QVERIFY(soundcheck::rms(recorded) < 10);

    QVERIFY(!engine->startRecord());
    QVERIFY(!engine->hasVisibleAudioInputDev("mic"));
    SoundServer::control({"load-module", "module-remap-source", "source_name=mic", "master=micbus.monitor"});
    QTRY_VERIFY_WITH_TIMEOUT(isListed("mic"), kPatience_ms);
    QVERIFY(engine->startRecord());
    QVERIFY(runs());
    QVERIFY(engine->stopRecord(false));
    engine->config()->setInputDevice("Default");
}

void TestRecordEngine::record_survives_deathOfServer()
{
    SoundServer server;
    QVERIFY(engine->startRecord() && engine->stopRecord(false)); // the spectrum's thread stays from then on
    const int threads = countOf("task");
    for (const int type : {0, 1}) {
        QSignalSpy finished(engine, &RecordEngine::recordFinished);
        QVERIFY(engine->startRecord(type));
        QVERIFY(type != 0 || runs());
        const LogCapture log;
        server.kill();
        QTRY_VERIFY_WITH_TIMEOUT(log.count("Connection terminated") > 0, kPatience_ms);
        // The recorder is told nothing.
        QVERIFY(engine->isRecording());
        QVERIFY(engine->stopRecord(type == 0));
        QCOMPARE(finished.count(), type == 0 ? 1 : 0);
        if (type == 0)
            QCOMPARE(mediacheck::decodeErrors(finished.last().first().toMap().value("filePath").toString()),
                     QString());
        QVERIFY(!engine->startRecord(type));
        QVERIFY(!engine->isRecording());
        server.start();
        QTRY_VERIFY_WITH_TIMEOUT(engine->isRecording() || engine->startRecord(), kPatience_ms);
        QVERIFY(runs());
        QVERIFY(engine->stopRecord(false));
    }
    QTRY_VERIFY(countOf("task") <= threads);
}

QTEST_MAIN(TestRecordEngine)
#include "test_recordengine.moc"
