#include "tests/support/filmclock.h"
#include "tests/support/logcapture.h"
#include "tests/support/mediacheck.h"
#include "tests/support/process.h"
#include "tests/support/recorder.h"
#include "tests/support/slowmachine.h"
#include "tests/support/soundserver.h"

#include <QtTest/QtTest>

#include <functional>
#include <thread>

using namespace std::chrono_literals;

/// The machine made slow on purpose.
class TestRecordClock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void film_keepsItsTime_whateverTheMachineDoes();
    void memory_isBounded_whenTheEncoderIsSlow();
    void encoder_isMpeg4_withoutH264();

private:
    filmclock::PlayerPtr picture;
};

void TestRecordClock::initTestCase()
{
    picture = filmclock::play();
    QVERIFY(picture);
}

void TestRecordClock::cleanup()
{
    SlowMachine::instance().set({});
    SlowMachine::instance().capture_rate = nullptr;
    SlowMachine::instance().has_h264 = true;
}

void TestRecordClock::film_keepsItsTime_whateverTheMachineDoes()
{
    SlowMachine::instance().capture_rate = "33/1";
    Recorder recorder({0, 0, 640, 360});
    QVERIFY(recorder.begin());
    QElapsedTimer clock;
    clock.start();
    const auto slowly = [] { std::this_thread::sleep_for(60ms); };
    struct Hour
    {
        int until_s;
        std::function<void()> capture;
        std::function<void()> encode;
    };
    for (const Hour& hour :
         {Hour{10, {}, {}}, Hour{20, SlowMachine::every(100ms), {}}, Hour{28, SlowMachine::every(50ms), {}},
          Hour{34, SlowMachine::inBursts(200ms, 400ms), {}},
          Hour{45, SlowMachine::inBursts(2000ms, 5000ms), {}}, Hour{49, {}, slowly}, Hour{60, {}, {}}}) {
        SlowMachine::instance().set(hour.capture, hour.encode);
        if (hour.until_s == 28) { // the microphone has a hole, too
            QTest::qWait(1000);
            SoundServer::control({"suspend-source", "mic", "1"});
            QTest::qWait(1700);
            SoundServer::control({"suspend-source", "mic", "0"});
        }
        QTest::qWait(std::max<int>(0, hour.until_s * 1000 - int(clock.elapsed())));
    }
    const double recorded_s = double(clock.elapsed()) / 1000;
    const QString file = recorder.end();
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    const QJsonObject probed = mediacheck::probe(file);
    for (const char* kind : {"video", "audio"}) {
        const double length = mediacheck::seconds(mediacheck::stream(probed, kind));
        QVERIFY2(std::abs(length - recorded_s) < 0.1,
                 qPrintable(QStringLiteral("%1: %2 of %3").arg(kind).arg(length).arg(recorded_s)));
    }
    const auto offsets = filmclock::offsets(file);
    for (const filmclock::Offset& offset : offsets)
        qInfo("%6.2f s: %4.0f ms", offset.film_s, offset.offset_s * 1000);
    QVERIFY2(offsets.size() > 45, qPrintable(QString::number(offsets.size())));
    QVERIFY2(filmclock::spread(offsets) < 0.04, qPrintable(QString::number(filmclock::spread(offsets))));
}

void TestRecordClock::memory_isBounded_whenTheEncoderIsSlow()
{
    constexpr int kMegabyte = 1 << 20;
    Recorder recorder({0, 0, 1920, 1080});
    QVERIFY(recorder.begin());
    QElapsedTimer clock;
    clock.start();
    QTest::qWait(500);
    const auto before = memoryOf("VmRSS");
    // A second of pictures is 200 MB as captured and 75 MB as scaled.
    SlowMachine::instance().set({}, [] { std::this_thread::sleep_for(400ms); });
    qint64 most = 0;
    while (clock.elapsed() < 6000) {
        QTest::qWait(50);
        most = std::max(most, memoryOf("VmRSS") - before);
    }
    SlowMachine::instance().set({});
    const double recorded_s = double(clock.elapsed()) / 1000;
    const QString file = recorder.end();
    QVERIFY2(most < 400 * kMegabyte, qPrintable(QStringLiteral("%1 MiB").arg(most / kMegabyte)));
    const double length = mediacheck::seconds(mediacheck::stream(mediacheck::probe(file), "video"));
    QVERIFY2(std::abs(length - recorded_s) < 0.1, qPrintable(QString::number(length)));
}

void TestRecordClock::encoder_isMpeg4_withoutH264()
{
    SlowMachine::instance().has_h264 = false;
    LogCapture log;
    Recorder recorder({0, 0, 640, 360});
    QVERIFY(recorder.begin());
    QTest::qWait(3000);
    const QString file = recorder.end();
    QCOMPARE(log.count("[openVideo]:\tno H.264 encoder, MPEG-4 is recorded"), 1);
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    const QJsonObject video = mediacheck::stream(mediacheck::probe(file), "video");
    QCOMPARE(video["codec_name"].toString(), QStringLiteral("mpeg4"));
    QVERIFY(filmclock::offsets(file).size() >= 2); // it can be read
}

QTEST_MAIN(TestRecordClock)
#include "test_recordclock.moc"
