#include "tests/support/files.h"
#include "tests/support/filmclock.h"
#include "tests/support/fulldisk.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/mediacheck.h"
#include "tests/support/recorder.h"
#include "tests/support/soundcheck.h"
#include "tests/support/soundserver.h"

#include <QtMultimedia/QAudioDeviceInfo>
#include <QtTest/QtTest>

#include <sys/stat.h>

using multimedia::ScreenRecord;

namespace {

constexpr int kPatience_ms = 30'000;
constexpr int kSampleRate = 44100;
constexpr QRect kPart(0, 0, 640, 360);

/// Types of the boxes at the top of an MP4, in order.
QByteArray boxes(const QString& path)
{
    const QByteArray file = contentOf(path);
    QByteArray types;
    for (qint64 at = 0; at + 8 <= file.size();) {
        const char* box = file.constData() + at;
        types += QByteArray(box + 4, 4) + ' ';
        at += std::max<quint32>(qFromBigEndian<quint32>(box), 8);
    }
    return types;
}

/// Neither readable for others, nor anything left of its making.
void verifyOnlyFile(const QDir& folder)
{
    const QStringList entries = folder.entryList(QDir::Files | QDir::Hidden);
    QVERIFY2(entries.size() == 1 && entries[0].endsWith(".mp4"), qPrintable(entries.join(' ')));
    struct stat status = {};
    QCOMPARE(::stat(qPrintable(folder.filePath(entries[0])), &status), 0);
    QCOMPARE(status.st_mode & 0777, mode_t(0600));
}

double pictureLength(const QString& file)
{
    const auto times = mediacheck::pictureTimes(file);
    return times.empty() ? 0 : times.back() + 0.04;
}

/// An application that records, in a folder of its own.
struct Host
{
    QTemporaryDir folder;
    QProcess process;
    QElapsedTimer recording;

    void start(const QString& home, const QString& end, const QStringList& before = {})
    {
        QStringList command = before + QStringList{"env", "TMPDIR=" + folder.path(), kRecordHost, home, end};
        process.setStandardErrorFile(QProcess::nullDevice());
        process.start(command.takeFirst(), command);
    }
    bool waitUntilRecording()
    {
        const bool records =
            process.waitForReadyRead(kPatience_ms) && process.readAll().startsWith("recording");
        recording.start();
        return records;
    }
    QString file() const
    {
        const QDir directory(folder.path());
        return directory.filePath(directory.entryList({"*.mp4"}).value(0));
    }
};

} // namespace

/// What is taken away from a recording while it runs.
class TestRecordLoss : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void kill_leavesWhatPlays();
    void end_finishesTheFile_data();
    void end_finishesTheFile();
    void fullDisk_endsTheRecording();
    void fullDisk_leavesNoName_whenNothingFits();
    void microphone_isNotReplaced();
    void soundServer_mayGo();
    void screen_endsTheRecording();

private:
    /// Lets it run for a second, pause after that, or pause before it has run at all.
    static bool bring(Recorder& recorder, ScreenRecord::State to);

    filmclock::PlayerPtr picture;
    SoundServer server;
};

void TestRecordLoss::initTestCase()
{
    picture = filmclock::play();
    QVERIFY(picture);
}

bool TestRecordLoss::bring(Recorder& recorder, ScreenRecord::State to)
{
    if (to != ScreenRecord::Waiting) {
        if (!recorder.begin())
            return false;
        QTest::qWait(1000);
    }
    return to == ScreenRecord::Running || recorder.reach(&ScreenRecord::pause, ScreenRecord::Pausing);
}

void TestRecordLoss::kill_leavesWhatPlays()
{
    constexpr int kHosts = 10;
    constexpr int kStopped = 3; ///< the last ones, killed amidst the end of their recording
    constexpr int kFirst_ms = 1500;
    constexpr int kStep_ms = 170;
    std::array<Host, kHosts> hosts;
    for (Host& host : hosts)
        host.start("stack", "wait");
    for (Host& host : hosts)
        QVERIFY(host.waitUntilRecording());
    for (int i = 0; i < kHosts; ++i) {
        Host& host = hosts[size_t(i)];
        const InCase in_case(i);
        QTest::qWait(std::max<int>(0, kFirst_ms + i * kStep_ms - int(host.recording.elapsed())));
        const double recorded_s = double(host.recording.elapsed()) / 1000;
        if (i >= kHosts - kStopped) {
            host.process.write("\n");
            host.process.waitForBytesWritten();
            QTest::qWait(60 * (i - (kHosts - kStopped)));
        }
        host.process.kill();
        QVERIFY(host.process.waitForFinished());
        verifyOnlyFile(QDir(host.folder.path()));
        const double length = pictureLength(host.file());
        QVERIFY2(length > recorded_s - 1.2,
                 qPrintable(QStringLiteral("%1 of %2 s").arg(length).arg(recorded_s)));
        QVERIFY(!mediacheck::decodeAudio(host.file(), kSampleRate).empty());
    }
}

void TestRecordLoss::end_finishesTheFile_data()
{
    QTest::addColumn<QString>("home");
    QTest::addColumn<QString>("end");
    for (const char* home : {"stack", "static", "heap"})
        for (const char* end : {"return", "noloop", "exit", "xserver"})
            QTest::addRow("%s %s", home, end) << home << end;
}

void TestRecordLoss::end_finishesTheFile()
{
    QFETCH(QString, home);
    QFETCH(QString, end);
    Host host;
    host.start(home, end,
               end == "xserver" ? QStringList{QLatin1String(kRigFolder) + "/with-desktop", "--no-sound"}
                                : QStringList());
    QVERIFY(host.process.waitForFinished(kPatience_ms));
    QCOMPARE(host.process.exitCode(), end == "xserver" ? 1 : 0);
    verifyOnlyFile(QDir(host.folder.path()));
    QCOMPARE(boxes(host.file()), QByteArray("ftyp moov free free mdat "));
    QCOMPARE(mediacheck::decodeErrors(host.file()), QString());
    const double length = pictureLength(host.file());
    QVERIFY2(length > 1.3 && length < 4, qPrintable(QString::number(length)));
}

void TestRecordLoss::fullDisk_endsTheRecording()
{
    Recorder recorder(kPart);
    LogCapture log;
    QString file;
    {
        const FullDisk disk(150'000);
        recorder.start();
        file = recorder.end(true);
    }
    QCOMPARE(log.count("File too large"), 1);
    QCOMPARE(log.count("[run]:\terror in write frame\tFile too large"), 1);
    QCOMPARE(recorder.finished.size(), 1);
    QVERIFY(pictureLength(file) > 0.3);
    QVERIFY(QFileInfo(file).size() <= 150'000);
}

void TestRecordLoss::fullDisk_leavesNoName_whenNothingFits()
{
    const QStringList before = QDir::temp().entryList(QDir::Files | QDir::Hidden);
    Recorder recorder(kPart);
    {
        const FullDisk disk(1000);
        recorder.start();
        QCOMPARE(recorder.end(true), QString());
    }
    QCOMPARE(recorder.getState(), ScreenRecord::Waiting);
    QCOMPARE(recorder.finished.size(), 1);
    QCOMPARE(recorder.getFile(), QString());
    QCOMPARE(QDir::temp().entryList(QDir::Files | QDir::Hidden), before);
}

void TestRecordLoss::microphone_isNotReplaced()
{
    // While it runs, and before the start.
    for (const ScreenRecord::State when : {ScreenRecord::Running, ScreenRecord::Waiting}) {
        const InCase in_case(when);
        const QString module = QString::fromLatin1(SoundServer::control(
            {"load-module", "module-remap-source", "source_name=chosen", "master=micbus.monitor"}));
        SoundServer::control({"set-default-source", "chosen"});
        QTRY_COMPARE(QAudioDeviceInfo::defaultInputDevice().deviceName(), QStringLiteral("chosen"));
        Recorder recorder(kPart);
        LogCapture log;
        QVERIFY(bring(recorder, when));
        QTest::qWait(2000);
        SoundServer::unload(module); // the server goes on with "mic", which hears the same
        QVERIFY(recorder.begin());
        QTest::qWait(3000);
        const QString file = recorder.end();
        QCOMPARE(log.count("[run]:\taudio device chosen is gone"), 1);
        const auto sound = mediacheck::decodeAudio(file, kSampleRate);
        QVERIFY(std::abs(double(sound.size()) / kSampleRate - pictureLength(file)) < 0.1);
        const auto half = sound.begin() + std::ptrdiff_t(sound.size() * 55 / 100);
        QCOMPARE(soundcheck::rms({sound.begin(), half}) > 500, when == ScreenRecord::Running);
        QVERIFY(soundcheck::rms({half, sound.end()}) < 1);
    }
}

void TestRecordLoss::soundServer_mayGo()
{
    // While it runs, in a pause, before the start; with the server back for the next recording.
    for (const ScreenRecord::State when :
         {ScreenRecord::Running, ScreenRecord::Pausing, ScreenRecord::Waiting}) {
        const InCase in_case(when);
        Recorder recorder(kPart);
        QVERIFY(bring(recorder, when));
        server.kill();
        QVERIFY(recorder.begin());
        QTest::qWait(2500);
        const QString file = recorder.end();
        QCOMPARE(mediacheck::decodeErrors(file), QString());
        QVERIFY(pictureLength(file) > 2);
        if (when == ScreenRecord::Running) {
            const auto sound = mediacheck::decodeAudio(file, kSampleRate);
            QVERIFY(std::abs(double(sound.size()) / kSampleRate - pictureLength(file)) < 0.1);
        }
        server.start();
    }
}

void TestRecordLoss::screen_endsTheRecording()
{
    if (QGuiApplication::screens().size() < 2)
        QSKIP("needs two screens");
    // While it runs, in a pause, before the start.
    for (const ScreenRecord::State when :
         {ScreenRecord::Running, ScreenRecord::Pausing, ScreenRecord::Waiting}) {
        const InCase in_case(when);
        SilentRecorder recorder({0, 0, 320, 180});
        recorder.setScreen(QGuiApplication::screens()[1]);
        QVERIFY(bring(recorder, when));
        QCOMPARE(QProcess::execute("xrandr", {"--output", "DUMMY1", "--off"}), 0);
        const QString file = recorder.end(true);
        QCOMPARE(recorder.finished.size(), 1);
        QCOMPARE(recorder.getState(), ScreenRecord::Waiting);
        QVERIFY(!recorder.getScreen());
        QCOMPARE(recorder.getFile(), file);
        QCOMPARE(file.isEmpty(), when == ScreenRecord::Waiting);
        if (!file.isEmpty()) {
            QCOMPARE(mediacheck::decodeErrors(file), QString());
            QVERIFY(pictureLength(file) > 0.8);
        }
        const QStringList on = {"--output", "DUMMY1", "--mode", "1280x720", "--pos", "1920x0"};
        QCOMPARE(QProcess::execute("xrandr", on), 0);
        QTRY_COMPARE(QGuiApplication::screens().size(), 2);
    }
}

QTEST_MAIN(TestRecordLoss)
#include "test_recordloss.moc"
