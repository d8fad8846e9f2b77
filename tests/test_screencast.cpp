#include "tests/support/colour.h"
#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/mediacheck.h"
#include "tests/support/program.h"
#include "tests/support/recorder.h"

#include <QtTest/QtTest>

using multimedia::ScreenRecord;

namespace {

const QColor kRed(200, 40, 40);
const QColor kWhite(255, 255, 255);

/// The rig's portal, in one of its modes.
class Stub : public Program
{
public:
    explicit Stub(const QString& mode)
        : Program(QLatin1String(kStubPortal), {mode})
    {}
    bool isReady() { return waitForReadyRead(10'000) && readAll() == "ready\n"; }
};

QString tokenFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation) + "/screencast.json";
}

/// Of the one screen.
QString keptToken()
{
    const QJsonObject tokens = QJsonDocument::fromJson(contentOf(tokenFile())).object();
    return tokens.isEmpty() ? QString() : tokens.begin().value().toString();
}

} // namespace

/// The portal's answers, good and bad, without a compositor: on the session bus of tests/rig/with-wayland
/// --no-screen stands the stub.
class TestScreencast : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { QFile::remove(tokenFile()); }

    void refusal_endsInWaiting_withoutFile();
    void dialog_mayBeLeftOpen();
    void process_mayEnd_whileTheDialogIsOpen();
    void end_ofTheShare_keepsTheFile();
    void pictures_areTakenAsTheyAre();
    void pause_isNotInTheFilm();
    void gif_hasItsOwnRate();
    void token_isReplaced_andDropped();
};

void TestScreencast::refusal_endsInWaiting_withoutFile()
{
    for (const auto& [mode, line] :
         {std::pair("cancel", "the user has cancelled the sharing of the screen"),
          {"denied", "the desktop has denied the sharing of the screen"},
          {"dmabuf", "the desktop has offered no format that can be read in memory"},
          {"", "this desktop has no portal that shares screens: "}}) {
        const InCase in_case(mode);
        std::unique_ptr<Stub> stub;
        if (*mode != '\0') {
            stub = std::make_unique<Stub>(mode);
            QVERIFY(stub->isReady());
        }
        LogCapture log;
        SilentRecorder recorder;
        QSignalSpy states(&recorder, &ScreenRecord::stateChanged);
        recorder.start();
        QCOMPARE(recorder.getState(), ScreenRecord::Processing);
        QTRY_COMPARE_WITH_TIMEOUT(states.size(), 1, SilentRecorder::kPatience_ms);
        QCOMPARE(recorder.getState(), ScreenRecord::Waiting);
        QCOMPARE(recorder.finished.size(), 1);
        QCOMPARE(recorder.getFile(), QString());
        QCOMPARE(QDir::temp().entryList({"*.mp4"}), QStringList());
        QCOMPARE(log.count("[screen]:\t"), 1);
        QVERIFY2(log.count(QLatin1String("[screen]:\t") + line) == 1, qPrintable(log.text()));
    }
}

void TestScreencast::dialog_mayBeLeftOpen()
{
    Stub stub("silent");
    QVERIFY(stub.isReady());
    LogCapture log;
    {
        SilentRecorder recorder;
        for (int round = 0; round < 3; ++round) {
            recorder.start();
            QTest::qWait(300 * round); // before, in and after the talk with the portal
            QCOMPARE(recorder.getState(), ScreenRecord::Processing);
            QElapsedTimer clock;
            clock.start();
            QVERIFY(recorder.reach(&ScreenRecord::stop, ScreenRecord::Waiting));
            QVERIFY(clock.elapsed() < 2000);
        }
        recorder.start();
        QTest::qWait(300);
    }
    QCOMPARE(log.count("[screen]:\t"), 0);
    QCOMPARE(QDir::temp().entryList({"*.mp4"}), QStringList());
}

void TestScreencast::process_mayEnd_whileTheDialogIsOpen()
{
    Stub stub("silent");
    QVERIFY(stub.isReady());
    for (const char* home : {"stack", "static", "heap"}) {
        QProcess host;
        host.start(QLatin1String(kRecordHost), {QLatin1String(home), QStringLiteral("asked")});
        QVERIFY2(host.waitForFinished(10'000), home);
        QCOMPARE(host.exitStatus(), QProcess::NormalExit);
        QCOMPARE(host.exitCode(), 0);
    }
}

void TestScreencast::end_ofTheShare_keepsTheFile()
{
    // By the panel, of the stream, of the portal.
    for (const auto& [mode, line] : {std::pair("closed", "the desktop has ended the sharing of the screen"),
                                     {"ending", "the desktop shares the screen no longer"},
                                     {"ok", ""}}) {
        const InCase in_case(mode);
        Stub stub(mode);
        QVERIFY(stub.isReady());
        LogCapture log;
        SilentRecorder recorder;
        QVERIFY(recorder.begin());
        QElapsedTimer clock;
        clock.start();
        if (*line == '\0') {
            QTest::qWait(800);
            stub.kill();
        }
        const QString file = recorder.end(true);
        QVERIFY2(clock.elapsed() < 5000, qPrintable(log.text()));
        QVERIFY(!file.isEmpty());
        QCOMPARE(mediacheck::decodeErrors(file), QString());
        QVERIFY(mediacheck::pictureTimes(file).back() > 0.5);
        QCOMPARE(log.count("[screen]:\t"), 1);
        QVERIFY2(log.count(QLatin1String("[screen]:\t") + line) == 1, qPrintable(log.text()));
    }
}

/// Of one screen, the meant one of two, and in all ways that a portal may have.
void TestScreencast::pictures_areTakenAsTheyAre()
{
    for (const auto& [mode, size] : {std::pair("ok", QSize(640, 400)),
                                     {"two", QSize(800, 600)},
                                     {"v1", QSize(640, 400)},
                                     {"crop", QSize(560, 340)},
                                     {"rgba", QSize(640, 400)},
                                     {"corrupt", QSize(640, 400)}}) {
        const InCase in_case(mode);
        init();
        Stub stub(mode);
        QVERIFY(stub.isReady());
        SilentRecorder recorder;
        const QString file = recorder.record(800);
        QCOMPARE(mediacheck::decodeErrors(file), QString());
        QCOMPARE(keptToken().isEmpty(), mode == QLatin1String("v1"));
        const int pictures = int(mediacheck::pictureTimes(file).size());
        QVERIFY(pictures >= 18);
        QVERIFY(mediacheck::distinctFrames(file) > 3);
        for (int i = 0; i < pictures; i += 3) { // what is not to be seen is green
            const QImage picture = mediacheck::frameAt(file, i);
            QCOMPARE(picture.size(), size);
            QVERIFY(isNear(picture.pixelColor(5, 5), kWhite));
            QVERIFY(isNear(picture.pixelColor(size.width() / 2 - 5, size.height() / 2 - 15), kWhite));
            QVERIFY(isNear(picture.pixelColor(size.width() - 5, 5), kRed));
            QVERIFY(isNear(picture.pixelColor(size.width() / 2 + 5, size.height() / 2 - 15), kRed));
        }
    }
}

void TestScreencast::pause_isNotInTheFilm()
{
    Stub stub("ok");
    QVERIFY(stub.isReady());
    SilentRecorder recorder;
    QVERIFY(recorder.reach(&ScreenRecord::pause, ScreenRecord::Pausing)); // asked for already
    double running_s = 0;
    for (int period = 0; period < 2; ++period) {
        QVERIFY(recorder.begin());
        QElapsedTimer clock;
        clock.start();
        QTest::qWait(700);
        QVERIFY(recorder.reach(&ScreenRecord::pause, ScreenRecord::Pausing));
        running_s += double(clock.elapsed()) / 1000;
        QTest::qWait(700);
    }
    const QString file = recorder.end();
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    const double film_s = mediacheck::pictureTimes(file).back() + 0.04;
    QVERIFY2(std::abs(film_s - running_s) < 0.3, qPrintable(QString::number(film_s)));
}

void TestScreencast::gif_hasItsOwnRate()
{
    Stub stub("ok");
    QVERIFY(stub.isReady());
    SilentRecorder recorder;
    recorder.setIsGif(true);
    const QString file = recorder.record(1000);
    QVERIFY(file.endsWith(".gif"));
    const QJsonObject video = mediacheck::stream(mediacheck::probe(file), "video");
    QCOMPARE(video["r_frame_rate"].toString(), QStringLiteral("10/1"));
    QVERIFY(mediacheck::distinctFrames(file) > 5);
}

void TestScreencast::token_isReplaced_andDropped()
{
    Stub stub("ok");
    QVERIFY(stub.isReady());
    const auto record = [] {
        SilentRecorder recorder;
        return recorder.begin() && !recorder.end().isEmpty();
    };
    QVERIFY(record());
    const QString first = keptToken();
    QVERIFY(!QUuid(first).isNull());
    QCOMPARE(QFileInfo(tokenFile()).permissions(),
             QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser);
    QVERIFY(record());
    QVERIFY(!QUuid(keptToken()).isNull());
    QVERIFY(keptToken() != first);
    const QJsonObject unknown{{QGuiApplication::primaryScreen()->name(), QStringLiteral("not the portal's")}};
    writeFile(tokenFile(), QJsonDocument(unknown).toJson()); // the stub refuses it, and asks again
    QVERIFY(record());
    QVERIFY(!QUuid(keptToken()).isNull());
    writeFile(tokenFile(), "{ no JSON");
    QVERIFY(record());
    QVERIFY(!QUuid(keptToken()).isNull());
}

QTEST_MAIN(TestScreencast)
#include "test_screencast.moc"
