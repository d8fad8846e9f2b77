#include "multimedia/audiorecorder/audiorecorder.h"
#include "multimedia/audiorecorder/recordconfig.h"
#include "multimedia/audiorecorder/recordengine.h"
#include "multimedia/audiorecorder/voicehandler.h"
#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/mediacheck.h"
#include "tests/support/soundcheck.h"

#include <QtMultimedia/QAudioInput>
#include <QtTest/QtTest>

#include <functional>

/// The recorder with its microphone silenced: what it captures is written by the test, so that every byte
/// counts.

namespace {

constexpr int kRate = 24000;
constexpr int kFrameBytes = 2048;
constexpr double kVoice_hz = 120;
enum Type { Direct = 0, High = 1, Plain = 4, Half = 5 };

QByteArray voice(int bytes)
{
    return soundcheck::bytesOf(soundcheck::vowel(kRate, kVoice_hz, bytes / 2.0 / kRate + 0.1)).left(bytes);
}

double durationOf(qint64 bytes)
{
    return double(bytes) / 2 * 1000 / kRate;
}

/// Frames in an ADTS stream.
int adtsFrames(const QString& path)
{
    const QByteArray stream = contentOf(path);
    int frames = 0;
    for (int i = 0; i + 7 <= stream.size(); ++frames) {
        const auto byte = [&](int offset) { return int(uchar(stream[i + offset])); };
        i += (byte(3) & 3) << 11 | byte(4) << 3 | byte(5) >> 5;
    }
    return frames;
}

struct Report
{
    qlonglong duration_ms;
    bool stopped;
};

} // namespace

class TestAudioRecorder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void encoder_takesHalfOfWaitingFrames();
    void stop_hasTailTwice_overHundredBytes();
    void sound_isNotDenoised();
    void voice_isChanged_byType();
    void stop_endsEmpty_whenHandlerNeverOpened();
    void stop_dropsShortVoice_fromNextRecording();
    void stop_endsWithHandledVoice();
    void restart_getsNothingOfEarlierVoice();
    void host_mayEndRecording_whenToldDuration();
    void host_mayStartAnew_whenToldOfTail();
    void sampleData_readsBytesBigEndian();
    void start_fails_withoutDevice();
    void start_goesOn_withoutEncoderOrFile();

private:
    void beginAnew()
    {
        cleanup();
        init();
    }
    bool start(int type);
    /// As if the microphone had delivered these bytes.
    void capture(const QByteArray& bytes);
    void captureUnread(const QByteArray& bytes) { recorder->findChild<QBuffer*>()->write(bytes); }

    QTemporaryDir dir;
    RecordConfig config;
    std::unique_ptr<AudioRecorder> recorder;
    QList<Report> reports;
    std::function<void()> on_report;
    QMetaObject::Connection reporting;
};

void TestAudioRecorder::init()
{
    config.setSampleRate(kRate);
    config.setChannels(1);
    config.setInputDevice("mic");
    recorder = std::make_unique<AudioRecorder>();
    recorder->setRecordPath(dir.filePath("voice.aac"));
    reports.clear();
    on_report = nullptr;
    reporting = connect(RecordEngine::instance(), &RecordEngine::updateRecordInfo, this,
                        [this](qlonglong duration, bool stopped) {
                            reports.append({duration, stopped});
                            if (on_report)
                                on_report();
                        });
}

void TestAudioRecorder::cleanup()
{
    recorder.reset();
    disconnect(reporting);
    QFile::remove(dir.filePath("voice.aac"));
}

bool TestAudioRecorder::start(int type)
{
    if (!recorder->startRecord(&config, type))
        return false;
    // That of an earlier recording may still be there.
    for (QAudioInput* input : recorder->findChildren<QAudioInput*>())
        input->stop();
    return true;
}

void TestAudioRecorder::capture(const QByteArray& bytes)
{
    captureUnread(bytes);
    QCoreApplication::processEvents();
}

void TestAudioRecorder::encoder_takesHalfOfWaitingFrames()
{
    for (const auto& [captured, encoded] :
         {std::pair(QList<int>{1}, 1), {{2}, 1}, {{3}, 2}, {{10}, 5}, {{10, 1, 1}, 5 + 3 + 2}}) {
        const InCase in_case(captured);
        QVERIFY(start(Direct));
        int total = 0;
        for (const int frames : captured) {
            capture(voice(frames * kFrameBytes));
            total += frames;
        }
        QVERIFY(recorder->stopRecord(true));
        // The encoder gives one more for what it held back.
        QCOMPARE(adtsFrames(recorder->recordPath()), encoded + 1);
        QVERIFY(!(QFileInfo(recorder->recordPath()).permissions() & (QFile::ReadGroup | QFile::ReadOther)));
        QCOMPARE(reports.last().duration_ms, qlonglong(durationOf(total * kFrameBytes)));
        beginAnew();
    }
}

void TestAudioRecorder::stop_hasTailTwice_overHundredBytes()
{
    for (const auto& [tail, appended] : {std::pair(0, 0),
                                         {100, 0},
                                         {102, kFrameBytes + 102},
                                         {kFrameBytes, 2 * kFrameBytes + kFrameBytes},
                                         {5000, 3 * kFrameBytes + 5000}}) {
        const InCase in_case(tail);
        QVERIFY(start(Direct));
        capture(voice(4 * kFrameBytes));
        captureUnread(voice(tail));
        QVERIFY(recorder->stopRecord(true));
        QVERIFY(reports.last().stopped);
        QCOMPARE(reports.last().duration_ms, qlonglong(durationOf(4 * kFrameBytes + appended)));
        beginAnew();
    }
}

void TestAudioRecorder::sound_isNotDenoised()
{
    // The gain control that is set up with the denoiser would raise it by far, and the denoiser remove it.
    soundcheck::Samples noise(kRate * 2);
    uint32_t random = 1;
    for (int16_t& sample : noise) {
        random = random * 1664525 + 1013904223;
        sample = int16_t(int32_t(random) >> 24);
    }
    QVERIFY(start(Direct));
    capture(soundcheck::bytesOf(noise));
    QVERIFY(recorder->stopRecord(true));
    auto decoded = mediacheck::decodeAudio(recorder->recordPath(), kRate);
    decoded.erase(decoded.begin(), decoded.begin() + 4096);
    decoded.resize(decoded.size() - 4096);
    QVERIFY(qAbs(soundcheck::rms(decoded) / soundcheck::rms(noise) - 1) < 0.15);
}

void TestAudioRecorder::voice_isChanged_byType()
{
    constexpr int kBlocks = 24; // of 4096 bytes: two seconds
    const QByteArray sound = voice(kBlocks * 4096);
    for (const auto& [type, pitch, length] : {std::tuple(0, 1.0, 1.0),
                                              {1, 2.6, 1.0},
                                              {2, 0.5, 1.0},
                                              {3, 0.5, 1.0},
                                              {4, 1.0, 1.0},
                                              {5, 1.0, 2.0},
                                              {8, 1.0, 0.5}}) {
        const InCase in_case(type);
        QVERIFY(start(type));
        for (int i = 1; i <= kBlocks; ++i) {
            capture(sound.mid((i - 1) * 4096, 4096));
            QVERIFY(reports.isEmpty() || !reports.last().stopped);
            // Of the recording, one report for each 4096 bytes of the result; sonic holds some of it back.
            if (!reports.isEmpty() && !recorder->isChangeVoice())
                QVERIFY(std::abs(reports.last().duration_ms - durationOf(i * 4096)) < 200);
        }
        QVERIFY(recorder->isChangeVoice() || reports.size() > kBlocks * std::min(1.0, length) / 2 - 2);
        QSignalSpy finished(recorder.get(), &AudioRecorder::recordFinish);
        QVERIFY(recorder->stopRecord(true));
        QTRY_COMPARE(recorder->state(), RECORDER_IDLE);
        QCOMPARE(finished.count(), recorder->isChangeVoice() ? 1 : 0);
        QVERIFY(reports.last().stopped);
        QVERIFY(std::abs(reports.last().duration_ms - durationOf(sound.size()) * length) < 200 * length);

        QCOMPARE(mediacheck::decodeErrors(recorder->recordPath()), QString());
        const auto heard = mediacheck::decodeAudio(recorder->recordPath(), kRate);
        QVERIFY(std::abs(reports.last().duration_ms - double(heard.size()) * 1000 / kRate) < 400 * length);
        const double wanted = kVoice_hz * pitch;
        const double found = soundcheck::pitch(heard, kRate, wanted / 1.5, wanted * 1.5, heard.size() / 2);
        QVERIFY2(std::abs(found / wanted - 1) < 0.03, qPrintable(QString::number(found)));
        if (type == 3) { // 300 Hz on harmonics of 120: the sound has moved to the odd multiples of 60 Hz
            double odd_share = 0;
            for (int hz = 60; hz < 4000; hz += 120)
                odd_share += soundcheck::energyShare(heard, kRate, hz);
            QVERIFY2(odd_share > 0.2, qPrintable(QString::number(odd_share)));
        }
        beginAnew();
    }
}

void TestAudioRecorder::stop_endsEmpty_whenHandlerNeverOpened()
{
    QVERIFY(start(High));
    capture(voice(kRate)); // bytes: one more would open the handler
    QSignalSpy finished(recorder.get(), &AudioRecorder::recordFinish);
    QVERIFY(recorder->stopRecord(true));
    QCOMPARE(recorder->state(), RECORDER_CLOSING);
    QVERIFY(!recorder->startRecord(&config, Direct));
    QCOMPARE(finished.count(), 0);
    QTRY_COMPARE(finished.count(), 1);
    QCOMPARE(recorder->state(), RECORDER_IDLE);
    QCOMPARE(reports.last().duration_ms, 0);

    // The end of one that is dropped is not that of the next.
    QVERIFY(start(High));
    QVERIFY(recorder->stopRecord(true));
    QVERIFY(recorder->stopRecord(false));
    QVERIFY(start(Plain));
    capture(voice(kRate * 2));
    QVERIFY(recorder->stopRecord(true));
    QCoreApplication::sendPostedEvents(recorder.get());
    QCOMPARE(finished.count(), 1);
    QTRY_COMPARE(finished.count(), 2);
}

void TestAudioRecorder::stop_dropsShortVoice_fromNextRecording()
{
    QVERIFY(start(Plain));
    capture(voice(10000));
    QVERIFY(recorder->stopRecord(false));
    QVERIFY(start(Plain));
    capture(QByteArray(kRate + 2, '\0'));
    QSignalSpy finished(recorder.get(), &AudioRecorder::recordFinish);
    QVERIFY(recorder->stopRecord(true));
    QTRY_COMPARE(finished.count(), 1);
    QCOMPARE(reports.last().duration_ms, qlonglong(durationOf(kRate + 2)));
    const auto decoded = mediacheck::decodeAudio(recorder->recordPath(), kRate);
    QVERIFY(soundcheck::rms(decoded) < 10);
}

void TestAudioRecorder::stop_endsWithHandledVoice()
{
    QVERIFY(start(Plain));
    QVERIFY(recorder->isChangeVoice());
    const QByteArray sound = voice(kRate * 2);
    for (int i = 0; i < sound.size(); i += 2400)
        capture(sound.mid(i, 2400));
    QSignalSpy finished(recorder.get(), &AudioRecorder::recordFinish);
    captureUnread(voice(3000));
    QVERIFY(recorder->stopRecord(true));
    QCOMPARE(recorder->state(), RECORDER_CLOSING);
    QVERIFY(recorder->stopRecord(true));
    QTRY_COMPARE(finished.count(), 1);
    QCOMPARE(recorder->state(), RECORDER_IDLE);
    // The tail went in as it was, in whole frames, and through the handler.
    QCOMPARE(reports.last().duration_ms, qlonglong(durationOf(sound.size() + 2 * kFrameBytes + 3000)));
    QCOMPARE(mediacheck::decodeErrors(recorder->recordPath()), QString());
}

void TestAudioRecorder::restart_getsNothingOfEarlierVoice()
{
    QVERIFY(start(Plain));
    capture(voice(2));
    captureUnread(voice(kRate * 4));
    // Handled sound is on its way, and nothing of it has arrived.
    QSemaphore handled;
    connect(
        recorder->findChild<VoiceHandler*>(), &VoiceHandler::dataHandled, this, [&] { handled.release(); },
        Qt::DirectConnection);
    recorder->readOriginalVoice();
    handled.acquire(10);
    QVERIFY(recorder->stopRecord(false));
    QVERIFY(start(Direct));
    QCoreApplication::processEvents();
    capture(QByteArray(4 * kFrameBytes, '\0'));
    QVERIFY(recorder->stopRecord(true));
    QCOMPARE(reports.last().duration_ms, qlonglong(durationOf(4 * kFrameBytes)));
}

void TestAudioRecorder::host_mayEndRecording_whenToldDuration()
{
    for (const Type type : {Direct, Half, Plain}) {
        for (const QString act : {"save", "save each time", "drop", "clear", "restart"}) {
            const InCase in_case(type, act);
            bool acted = false;
            on_report = [&] {
                if (std::exchange(acted, true) && act != "save each time")
                    return;
                if (act == "clear")
                    recorder->clearData();
                recorder->stopRecord(act.startsWith("save"));
                if (act == "restart")
                    QVERIFY(start(type));
            };
            QVERIFY(start(type));
            captureUnread(voice(kRate * 2));
            QTRY_VERIFY(acted);
            QTRY_COMPARE(recorder->state(), act == "restart" ? RECORDER_RECORDING : RECORDER_IDLE);
            if (act == "restart")
                capture(voice(kRate * 2));
            QVERIFY(recorder->stopRecord(true));
            QTRY_COMPARE(recorder->state(), RECORDER_IDLE);
            beginAnew();
        }
    }
}

void TestAudioRecorder::host_mayStartAnew_whenToldOfTail()
{
    for (const Type type : {Direct, Plain}) {
        const InCase in_case(type);
        bool acted = false;
        on_report = [&] {
            if (std::exchange(acted, true))
                return;
            QVERIFY(recorder->stopRecord(false));
            QVERIFY(start(type));
        };
        QVERIFY(start(type));
        // The stop that reports is one of a recording that is gone.
        QVERIFY(!recorder->stopRecord(true));
        QVERIFY(acted);
        QCOMPARE(recorder->state(), RECORDER_RECORDING);
        capture(voice(kRate * 2));
        QVERIFY(recorder->stopRecord(true));
        QTRY_COMPARE(recorder->state(), RECORDER_IDLE);
        QCOMPARE(reports.last().duration_ms, qlonglong(durationOf(kRate * 2)));
        beginAnew();
    }
}

void TestAudioRecorder::sampleData_readsBytesBigEndian()
{
    QVERIFY(recorder->getSampleData(30).isEmpty());
    QVERIFY(start(Direct));
    capture(QByteArray::fromHex("0001 ff00 ffff 1234"));
    QCOMPARE(recorder->getSampleData(4),
             (QVariantList{1 / 65535.0, 0xff00 / 65535.0, 1.0, 0x1234 / 65535.0}));
    QCOMPARE(recorder->getSampleData(2), (QVariantList{1 / 65535.0, 1.0}));
    // Less than two bytes a step: values overlap, and the last one has a single byte.
    QCOMPARE(recorder->getSampleData(8),
             (QVariantList{0x0001 / 65535.0, 0x01ff / 65535.0, 0xff00 / 65535.0, 0x00ff / 65535.0, 1.0,
                           0xff12 / 65535.0, 0x1234 / 65535.0, 0x34 / 65535.0}));
    QVERIFY(recorder->getSampleData(0).isEmpty());
    QVERIFY(recorder->getSampleData(-1).isEmpty());
    QVERIFY(recorder->getSampleData(2000000000).isEmpty());
    // What was captured outlives the end of the recording.
    QVERIFY(recorder->stopRecord(false));
    QCOMPARE(recorder->getSampleData(1000).size(), 1000);
    recorder->clearData();
    QVERIFY(recorder->getSampleData(4).isEmpty());
}

void TestAudioRecorder::start_fails_withoutDevice()
{
    const LogCapture log;
    QVERIFY(!recorder->startRecord(nullptr, Direct));
    QVERIFY(!recorder->hasVisibleAudioInputDev(QString()));
    config.setInputDevice("another room");
    QVERIFY(!recorder->startRecord(&config, Direct));
    QCOMPARE(log.count("another room"), 1);
    QCOMPARE(recorder->state(), RECORDER_IDLE);
    QVERIFY(!QFile::exists(recorder->recordPath()));
    config.setInputDevice("Default");
    QVERIFY(start(Direct));
    QVERIFY(!recorder->startRecord(&config, Direct));
    QVERIFY(recorder->hasVisibleAudioInputDev(QString()));
    QVERIFY(recorder->hasVisibleAudioInputDev("mic"));
    QVERIFY(!recorder->hasVisibleAudioInputDev("Default"));
}

void TestAudioRecorder::start_goesOn_withoutEncoderOrFile()
{
    const QString good = dir.filePath("voice.aac");
    for (const auto& [rate, channels, path] : {std::tuple(12345LL, 1, good), // no encoder has it
                                               {0LL, 1, good},
                                               {1LL << 40, 1, good},
                                               {kRate, 0, good},
                                               {kRate, 1, dir.path()},
                                               {kRate, 1, dir.filePath("none/voice.aac")},
                                               {kRate, 1, QString()}}) {
        const InCase in_case(rate, channels, path);
        config.setSampleRate(rate);
        config.setChannels(channels);
        recorder->setRecordPath(path);
        for (const int type : {int(Direct), int(Half), int(High)}) {
            if (!recorder->startRecord(&config, type))
                continue;
            capture(voice(100000));
            recorder->stopRecord(type != High);
            QCOMPARE(recorder->state(), RECORDER_IDLE);
        }
        // The next recording is none the worse.
        beginAnew();
        QVERIFY(start(Direct));
        capture(voice(10 * kFrameBytes));
        QVERIFY(recorder->stopRecord(true));
        QCOMPARE(adtsFrames(recorder->recordPath()), 6);
    }
}

QTEST_MAIN(TestAudioRecorder)
#include "test_audiorecorder.moc"
