#include "multimedia/base/worker.h"
#include "tests/support/colour.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/mediacheck.h"
#include "tests/support/process.h"
#include "tests/support/program.h"
#include "tests/support/recorder.h"
#include "tests/support/soundcheck.h"
#include "tests/support/testscreen.h"

#include <QtCore/QSemaphore>
#include <QtCore/QThreadPool>
#include <QtTest/QtTest>

#include <array>
#include <atomic>
#include <malloc.h>
#include <random>
#include <thread>

using multimedia::ScreenRecord;

namespace {

constexpr int kStepTimeout_ms = 30'000;
constexpr double kTone_hz = 1000;
/// Of a track's running period, against the time between the commands, which the test learns of by its event
/// loop.
constexpr double kLengthError_s = 0.15;

/// Cells of pure red, green and blue and a ramp of greys, in front of everything.
class ColourCard : public QRasterWindow
{
public:
    static constexpr int kCells = 20;

    ColourCard()
    {
        setFlag(Qt::BypassWindowManagerHint);
        setGeometry(0, 0, 5 * kCell, 4 * kCell);
        show();
        raise();
    }
    static QRect cell(int index) { return {index % 5 * kCell, index / 5 * kCell, kCell, kCell}; }
    static QColor colour(int index)
    {
        const int grey = std::min(255, (index - 3) * 16);
        return index < 3 ? QColor::fromHsv(120 * index, 255, 255) : QColor(grey, grey, grey);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        for (int i = 0; i < kCells; ++i)
            painter.fillRect(cell(i), colour(i));
    }

private:
    static constexpr int kCell = 32;
};

} // namespace

/// Runs in several desktops; each ctest entry names the functions that its desktop is for.
class TestScreenRecord : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    // One screen and a microphone.
    void record_keepsPictureAndSound();
    void pause_cutsTimeOut_andEndsTheSound();
    void record_takesOddRectangle_withoutSound_whenMute();
    void record_writesGif_withoutSound();
    void record_limitsGif_toItsShorterSide();
    void record_endsAtOnce_whenNothingCanCome();
    void record_keepsColours();
    void commands_takenBack_endWhereTheyBegan();
    void pause_beforeTheStart_keepsNoEarlierSound();
    void setters_areRefused_whileProcessing();
    void commands_fromManyThreads_endConsistently();
    void cycles_leaveNothingBehind();

    // Desktops of another kind.
    void record_findsSecondScreen();
    void record_isSilent_withoutMicrophone();
    void record_takesDevicePixels();

private:
    void change(ScreenRecord& recorder, void (ScreenRecord::*command)(), ScreenRecord::State end);

    std::unique_ptr<TestScreen> picture;
    std::unique_ptr<Program> tone;
};

void TestScreenRecord::initTestCase()
{
    picture = std::make_unique<TestScreen>();
    QVERIFY(picture->isShown());
    if (qEnvironmentVariableIsEmpty("RIG_PULSE_PID"))
        return;
    tone = playTone(kTone_hz);
    QVERIFY(tone->waitForStarted());
}

void TestScreenRecord::cleanupTestCase()
{
    tone.reset();
    picture.reset();
}

void TestScreenRecord::change(ScreenRecord& recorder, void (ScreenRecord::*command)(),
                              ScreenRecord::State end)
{
    if (QTest::currentTestFailed())
        return;
    QCoreApplication::sendPostedEvents(&recorder); // of a change before this one
    QSignalSpy changed(&recorder, &ScreenRecord::stateChanged);
    (recorder.*command)();
    QTRY_COMPARE_WITH_TIMEOUT(changed.size(), 1, kStepTimeout_ms);
    QCOMPARE(changed[0][0].value<ScreenRecord::State>(), end);
    QCOMPARE(recorder.getState(), end);
}

void TestScreenRecord::record_keepsPictureAndSound()
{
    Recorder recorder({0, 0, 1920, 1080});
    const QString file = recorder.record(10'000);
    QCOMPARE(file, recorder.getFile());
    QCOMPARE(QFileInfo(file).absolutePath(), QDir::tempPath());
    QCOMPARE(QFileInfo(file).completeBaseName().size(), 32);

    QCOMPARE(mediacheck::decodeErrors(file), QString());
    const QJsonObject probed = mediacheck::probe(file);
    QVERIFY(std::abs(mediacheck::seconds(probed["format"].toObject()) - recorder.recorded_s) <
            kLengthError_s);
    const QJsonObject video = mediacheck::stream(probed, "video");
    QCOMPARE(video["codec_name"].toString(), QStringLiteral("h264"));
    QCOMPARE(video["pix_fmt"].toString(), QStringLiteral("yuv420p"));
    QCOMPARE(video["avg_frame_rate"].toString(), QStringLiteral("25/1"));
    QCOMPARE(QSize(video["width"].toInt(), video["height"].toInt()), QSize(1920, 1080));
    const QJsonObject audio = mediacheck::stream(probed, "audio");
    QCOMPARE(audio["codec_name"].toString(), QStringLiteral("aac"));
    QCOMPARE(audio["sample_rate"].toString(), QString("44100"));
    QCOMPARE(audio["channels"].toInt(), 2);
    QVERIFY(std::abs(mediacheck::seconds(audio) - recorder.recorded_s) < kLengthError_s);

    const int frames = video["nb_read_frames"].toString().toInt();
    const int distinct = mediacheck::distinctFrames(file);
    QVERIFY2(distinct > frames / 2, qPrintable(QStringLiteral("%1 of %2").arg(distinct).arg(frames)));
    const QImage shot = mediacheck::frameAt(file, 100);
    for (const QPoint at : {QPoint(30, 30), QPoint(1000, 500), QPoint(1900, 900)})
        QVERIFY(isNear(shot.pixelColor(at), TestScreen::colourAt(0, at.x(), at.y())));

    const auto sound = mediacheck::decodeAudio(file, 44100);
    const std::vector<int16_t> middle(sound.begin() + 44100, sound.end() - 44100);
    QVERIFY(soundcheck::rms(middle) > 500);
    // Nearly everywhere: a sound server on a busy machine may skip.
    QVERIFY2(soundcheck::toneShare(middle, 44100, kTone_hz) > 0.6,
             qPrintable(QString::number(soundcheck::toneShare(middle, 44100, kTone_hz))));
}

void TestScreenRecord::pause_cutsTimeOut_andEndsTheSound()
{
    Recorder recorder({0, 0, 640, 360});
    double recorded_s = 0;
    const auto run = [&] {
        change(recorder, &ScreenRecord::start, ScreenRecord::Running);
        QElapsedTimer clock;
        clock.start();
        QTest::qWait(2000);
        recorded_s += double(clock.elapsed()) / 1000;
        change(recorder, &ScreenRecord::pause, ScreenRecord::Pausing);
    };
    run();
    const double until_pause_s = recorded_s;
    QTest::qWait(1500); // long against what the comparison below forgives
    run();
    change(recorder, &ScreenRecord::stop, ScreenRecord::Waiting);
    const QString file = recorder.getFile();
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    const QJsonObject probed = mediacheck::probe(file);
    const double video = mediacheck::seconds(mediacheck::stream(probed, "video"));
    const double audio = mediacheck::seconds(mediacheck::stream(probed, "audio"));
    QVERIFY2(std::abs(video - recorded_s) < 2 * kLengthError_s, qPrintable(QString::number(video)));
    QVERIFY2(std::abs(audio - until_pause_s) < kLengthError_s, qPrintable(QString::number(audio)));
}

void TestScreenRecord::record_takesOddRectangle_withoutSound_whenMute()
{
    Recorder recorder({300, 200, 101, 77}, true);
    const QString file = recorder.record(500);
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    QVERIFY(mediacheck::stream(mediacheck::probe(file), "audio").isEmpty());
    const QImage shot = mediacheck::frameAt(file, 5);
    QCOMPARE(shot.size(), QSize(102, 78));
    QVERIFY(isNear(shot.pixelColor(5, 5), TestScreen::colourAt(0, 305, 205)));
    QVERIFY(isNear(shot.pixelColor(97, 72), TestScreen::colourAt(0, 397, 272)));
}

void TestScreenRecord::record_writesGif_withoutSound()
{
    Recorder recorder({64, 800, 320, 240}); // the moving rows are in it
    recorder.setIsGif(true);
    const QString file = recorder.record(2000);
    QVERIFY(file.endsWith(".gif"));
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    const QJsonObject probed = mediacheck::probe(file);
    const QJsonObject video = mediacheck::stream(probed, "video");
    QCOMPARE(video["codec_name"].toString(), QStringLiteral("gif"));
    QCOMPARE(video["r_frame_rate"].toString(), QStringLiteral("10/1"));
    QVERIFY(mediacheck::stream(probed, "audio").isEmpty());
    QVERIFY(std::abs(mediacheck::seconds(probed["format"].toObject()) - recorder.recorded_s) <
            kLengthError_s);
    QVERIFY(mediacheck::distinctFrames(file) >= 2);
    QVERIFY(!recorder.getIsMute());
}

void TestScreenRecord::record_limitsGif_toItsShorterSide()
{
    for (const auto& [size, scaled] : {std::pair(QSize(1920, 1080), ""),
                                       {QSize(1081, 1081), "QSize(1080, 1080)"},
                                       {QSize(3000, 2000), "QSize(1620, 1080)"}}) {
        Recorder recorder({{0, 0}, size});
        recorder.setIsGif(true);
        LogCapture log;
        change(recorder, &ScreenRecord::pause, ScreenRecord::Pausing);
        const int lines = log.count("scaled size:");
        QVERIFY2(*scaled ? lines == 1 && log.count(scaled) == 1 : lines == 0, qPrintable(log.text()));
    }
}

void TestScreenRecord::record_endsAtOnce_whenNothingCanCome()
{
    struct Case
    {
        QRect rect;
        QString variable; ///< of the environment, set to nonsense
        bool has_screen;
        QString line;
    };
    const QRect inside(0, 0, 320, 180);
    for (const Case& bad : {Case{{1800, 1000, 320, 180}, "", true, "[run]:\terror in crop\t"},
                            Case{{}, "", true, "[openVideo]:\terror in open encode\t"},
                            Case{inside, "DISPLAY", true, "[createVideo]:\terror in open video format\t"},
                            Case{inside, "", false, "[createVideo]:\terror in open video format\t"},
                            Case{inside, "TMPDIR", true, "[writeHeader]:\terror in open io\t"}}) {
        const InCase in_case(bad.line, bad.rect, bad.variable);
        Recorder recorder(bad.rect);
        if (!bad.has_screen)
            recorder.setScreen(nullptr);
        const QByteArray value = qgetenv(qPrintable(bad.variable));
        auto restore = qScopeGuard([&] {
            if (!bad.variable.isEmpty())
                qputenv(qPrintable(bad.variable), value);
        });
        if (!bad.variable.isEmpty())
            qputenv(qPrintable(bad.variable), ":9999");
        {
            LogCapture log;
            QElapsedTimer clock;
            clock.start();
            change(recorder, &ScreenRecord::start, ScreenRecord::Running);
            QTRY_VERIFY2(log.count(bad.line) >= 1, qPrintable(log.text()));
            QTest::qWait(300); // whatever spins has time to show it
            const int lines = log.count(QString());
            QVERIFY2(lines < 50 + double(clock.elapsed()) / 10, qPrintable(log.text()));
            change(recorder, &ScreenRecord::stop, ScreenRecord::Waiting);
        }
        if (!bad.variable.isEmpty())
            qputenv(qPrintable(bad.variable), value);

        // The next recording is not the worse for it.
        recorder.setScreen(QGuiApplication::primaryScreen());
        recorder.setRect({0, 0, 320, 180});
        QCOMPARE(mediacheck::decodeErrors(recorder.record(300)), QString());
    }
}

void TestScreenRecord::record_keepsColours()
{
    ColourCard card;
    QVERIFY(QTest::qWaitForWindowExposed(&card));
    Recorder recorder(card.geometry(), true);
    const QString file = recorder.record(1000);
    const QJsonObject video = mediacheck::stream(mediacheck::probe(file), "video");
    for (const char* tag : {"color_space", "color_primaries", "color_transfer"})
        QCOMPARE(video[tag].toString(), QStringLiteral("bt709"));
    QCOMPARE(video["color_range"].toString(), QStringLiteral("tv"));
    // Two ways back that share no code, each by the tags.
    for (const char* way : {"scale,format=rgb24", "zscale,format=gbrp,format=rgb24"}) {
        const QByteArray pixels = mediacheck::output(
            QStringLiteral("ffmpeg"),
            {"-v", "error", "-ss", "0.5", "-i", file, "-frames:v", "1", "-vf", way, "-f", "rawvideo", "-"});
        QCOMPARE(pixels.size(), card.width() * card.height() * 3);
        for (int i = 0; i < ColourCard::kCells; ++i) {
            const QPoint at = ColourCard::cell(i).center();
            const auto* seen =
                reinterpret_cast<const uchar*>(pixels.constData()) + 3 * (at.y() * card.width() + at.x());
            const QColor painted = ColourCard::colour(i);
            const int worst =
                std::max({std::abs(seen[0] - painted.red()), std::abs(seen[1] - painted.green()),
                          std::abs(seen[2] - painted.blue())});
            QVERIFY2(worst <= 2,
                     qPrintable(QStringLiteral("%1: %2 is off by %3").arg(way, painted.name()).arg(worst)));
        }
    }
}

void TestScreenRecord::commands_takenBack_endWhereTheyBegan()
{
    Recorder recorder({0, 0, 64, 64}, true);
    QStringList told;
    connect(&recorder, &ScreenRecord::fileChanged, this, [&](const QString& file) {
        QVERIFY(file.isEmpty() || !told.contains(file));
        told += file;
    });
    for (int round = 0; round < 20; ++round) {
        QSignalSpy changed(&recorder, &ScreenRecord::stateChanged);
        recorder.start();
        recorder.stop();
        QTRY_VERIFY_WITH_TIMEOUT(!changed.isEmpty() && recorder.getState() == ScreenRecord::Waiting,
                                 kStepTimeout_ms);
    }
    change(recorder, &ScreenRecord::start, ScreenRecord::Running);
    recorder.pause();
    change(recorder, &ScreenRecord::start, ScreenRecord::Running);
    change(recorder, &ScreenRecord::stop, ScreenRecord::Waiting);

    // Two end before the first is told of.
    const auto known = told.size();
    std::thread([&recorder] {
        const auto reach = [&recorder](void (ScreenRecord::*command)(), ScreenRecord::State state) {
            (recorder.*command)();
            while (recorder.getState() != state)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        };
        for (int i = 0; i < 2; ++i) {
            reach(&ScreenRecord::start, ScreenRecord::Running);
            reach(&ScreenRecord::stop, ScreenRecord::Waiting);
        }
    }).join();
    QCoreApplication::sendPostedEvents(&recorder);
    QCOMPARE(told.size(), known + 2);
}

void TestScreenRecord::pause_beforeTheStart_keepsNoEarlierSound()
{
    Recorder recorder({0, 0, 64, 64});
    recorder.record(500); // whatever it leaves behind must not outlive it
    change(recorder, &ScreenRecord::pause, ScreenRecord::Pausing);
    QTest::qWait(1500); // the microphone hears the tone, and is not kept
    tone.reset();
    QTest::qWait(500);
    const QString file = recorder.record(1000);
    QVERIFY(soundcheck::rms(mediacheck::decodeAudio(file, 44100)) < 1);
    tone = playTone(kTone_hz);
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    const QJsonObject probed = mediacheck::probe(file);
    for (const char* kind : {"video", "audio"}) {
        const QJsonObject track = mediacheck::stream(probed, kind);
        QVERIFY(std::abs(track["start_time"].toString().toDouble()) < 0.03);
        QVERIFY2(std::abs(mediacheck::seconds(track) - recorder.recorded_s) < kLengthError_s,
                 qPrintable(QStringLiteral("%1: %2").arg(kind).arg(mediacheck::seconds(track))));
    }
}

void TestScreenRecord::setters_areRefused_whileProcessing()
{
    QScreen* screen = QGuiApplication::primaryScreen();
    ScreenRecord recorder;
    QSignalSpy gif(&recorder, &ScreenRecord::isGifChanged);
    QSignalSpy mute(&recorder, &ScreenRecord::isMuteChanged);
    QSignalSpy screens(&recorder, &ScreenRecord::screenChanged);
    QSignalSpy rects(&recorder, &ScreenRecord::rectChanged);
    QSignalSpy states(&recorder, &ScreenRecord::stateChanged);
    recorder.stop();              // it waits already
    for (int i = 0; i < 2; ++i) { // a value that is there already is no change
        recorder.setIsGif(true);
        recorder.setIsMute(true);
        recorder.setScreen(screen);
        recorder.setRect({0, 0, 64, 64});
    }
    LogCapture log;
    QSemaphore go; // until then the recorder's machine finds no thread
    QThreadPool& pool = *multimedia::Worker::getThreadPool();
    for (int i = 0; i < pool.maxThreadCount(); ++i)
        pool.start([&go] { go.acquire(); });
    recorder.start();
    recorder.start();
    const ScreenRecord::State state = recorder.getState();
    recorder.setIsGif(false);
    recorder.setIsMute(false);
    recorder.setScreen(nullptr);
    recorder.setRect({});
    go.release(pool.maxThreadCount());
    QCOMPARE(state, ScreenRecord::Processing);
    QCOMPARE(log.count("is not valid"), 4);
    QVERIFY(recorder.getIsGif() && recorder.getIsMute() && recorder.getScreen() == screen);
    QCOMPARE(recorder.getRect(), QRect(0, 0, 64, 64));
    QTRY_COMPARE_WITH_TIMEOUT(states.size(), 1, kStepTimeout_ms);
    QCOMPARE(recorder.getState(), ScreenRecord::Running);
    QCOMPARE(recorder.getFile(), QString());
    change(recorder, &ScreenRecord::stop, ScreenRecord::Waiting);
    QCOMPARE(gif.size() + mute.size() + screens.size() + rects.size(), 4);
}

void TestScreenRecord::commands_fromManyThreads_endConsistently()
{
    const unsigned seed = std::random_device()();
    qInfo("seed %u", seed);
    Recorder recorder({0, 0, 64, 64});
    const std::array commands = {&ScreenRecord::start, &ScreenRecord::pause, &ScreenRecord::stop};
    std::atomic<int> running = 4;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            std::mt19937 random(seed + i);
            for (int n = 0; n < 60; ++n) {
                if (const auto choice = random() % 4; choice < 3)
                    (recorder.*commands[choice])();
                else
                    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 20));
            }
            --running;
        });
    QTRY_COMPARE_WITH_TIMEOUT(running.load(), 0, kStepTimeout_ms);
    for (std::thread& thread : threads)
        thread.join();
    QTRY_VERIFY_WITH_TIMEOUT(recorder.getState() != ScreenRecord::Processing, kStepTimeout_ms);
    if (recorder.getState() != ScreenRecord::Waiting)
        change(recorder, &ScreenRecord::stop, ScreenRecord::Waiting);
    QCOMPARE(mediacheck::decodeErrors(recorder.record(300)), QString());
}

void TestScreenRecord::cycles_leaveNothingBehind()
{
    Recorder recorder({0, 0, 64, 64});
    const auto cycle = [&](int index) {
        recorder.setIsGif(index % 4 == 3);
        change(recorder, &ScreenRecord::start, ScreenRecord::Running);
        change(recorder, &ScreenRecord::stop, ScreenRecord::Waiting);
        QVERIFY(QFile::remove(recorder.getFile()));
    };
    constexpr int kWarmUp = 20;
    constexpr int kCycles = 200;
    QThreadPool::globalInstance()->setExpiryTimeout(100);
    for (int i = 0; i < kWarmUp; ++i)
        cycle(i);
    const int threads = countOf("task");
    const int files_open = countOf("fd");
    const size_t bytes = mallinfo2().uordblks;
    for (int i = 0; i < kCycles; ++i)
        cycle(i);
    QTRY_VERIFY2(countOf("task") <= threads, qPrintable(QString::number(countOf("task"))));
    QTRY_VERIFY2(countOf("fd") <= files_open, qPrintable(QString::number(countOf("fd"))));
    // Under a sanitizer's own allocator this is always 0, and its leak check does the counting.
    const double grown = double(mallinfo2().uordblks) - double(bytes);
    QVERIFY2(grown < 1e6, qPrintable(QString::number(grown)));
}

void TestScreenRecord::record_findsSecondScreen()
{
    const auto screens = QGuiApplication::screens();
    if (screens.size() < 2)
        QSKIP("needs two screens");
    for (int i = 0; i < 2; ++i) {
        Recorder recorder({200, 100, 640, 360}, true);
        recorder.setScreen(screens[i]);
        const QImage shot = mediacheck::frameAt(recorder.record(500), 5);
        QCOMPARE(shot.size(), QSize(640, 360));
        for (const QPoint at : {QPoint(10, 10), QPoint(400, 200), QPoint(630, 350)})
            QVERIFY(isNear(shot.pixelColor(at), TestScreen::colourAt(i, 200 + at.x(), 100 + at.y())));
    }
}

void TestScreenRecord::record_isSilent_withoutMicrophone()
{
    if (!qEnvironmentVariableIsEmpty("RIG_PULSE_PID"))
        QSKIP("needs a desktop without sound");
    Recorder recorder({0, 0, 320, 180});
    QSignalSpy mute(&recorder, &ScreenRecord::isMuteChanged);
    const QString file = recorder.record(500);
    QVERIFY(recorder.getIsMute());
    QCOMPARE(mute.size(), 0);
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    QVERIFY(mediacheck::stream(mediacheck::probe(file), "audio").isEmpty());
}

void TestScreenRecord::record_takesDevicePixels()
{
    if (QGuiApplication::primaryScreen()->devicePixelRatio() != 2)
        QSKIP("needs two device pixels to a logical one");
    Recorder recorder({100, 50, 320, 180}, true);
    const QImage shot = mediacheck::frameAt(recorder.record(500), 5);
    QCOMPARE(shot.size(), QSize(640, 360));
    for (const QPoint at : {QPoint(5, 5), QPoint(300, 170)})
        QVERIFY(isNear(shot.pixelColor(2 * at), TestScreen::colourAt(0, 100 + at.x(), 50 + at.y())));
}

QTEST_MAIN(TestScreenRecord)
#include "test_screenrecord.moc"
