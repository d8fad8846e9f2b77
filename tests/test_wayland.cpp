#include "multimedia/screenrecord/steppedgrabber.h"
#include "tests/support/filmclock.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/mediacheck.h"
#include "tests/support/recorder.h"

#include <QtGui/QPainter>
#include <QtGui/QRasterWindow>
#include <QtTest/QtTest>

#include <csignal>

using multimedia::ScreenGrabber;
using multimedia::ScreenRecord;

namespace {

QByteArray compositor(const QStringList& command)
{
    return mediacheck::output(QStringLiteral("swaymsg"), QStringList{"-r"} + command);
}

/// Pixels to a logical one, of the screen that the compositor has first.
double trueScale()
{
    return QJsonDocument::fromJson(compositor({"-t", "get_outputs"}))
        .array()[0]
        .toObject()["scale"]
        .toDouble();
}

/// Ends what the rig has started, and waits until it is gone.
void killServer(const char* variable)
{
    const auto id = pid_t(qEnvironmentVariableIntValue(variable));
    QVERIFY(id > 0);
    QCOMPARE(::kill(id, SIGKILL), 0);
}

bool isColourful(const QColor& colour)
{
    return colour.hsvSaturation() > 150 && colour.value() > 150;
}

bool isGrey(const QColor& colour)
{
    return std::abs(colour.red() - 64) < 20 && colour.hsvSaturation() < 60;
}

/// What a desktop looks like on which nothing happens.
class StillWindow : public QRasterWindow
{
protected:
    void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(QRect({0, 0}, size()), Qt::darkCyan); }
};

} // namespace

/// On a compositor, with the portal and the backend that its users have: tests/rig/with-wayland.
class TestWayland : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void recording_showsTheMovingPicture();
    void recording_showsTheRectangle();
    void recording_repeatsAStillScreen();
    void recording_keepsItsSize_whenTheScreenIsTurned();
    void grabber_showsTheScreen();
    void recording_ends_withPipeWire(); // and so comes last

    // Desktops of another kind.
    void recording_showsTheSecondScreen();
    void recording_isRefused_withoutBackend();

private:
    filmclock::PlayerPtr picture;
};

void TestWayland::init()
{
    static const QRect kGeometry = QGuiApplication::primaryScreen()->geometry();
    QTRY_COMPARE(QGuiApplication::primaryScreen()->geometry(), kGeometry);
    picture.reset();
}

void TestWayland::recording_showsTheMovingPicture()
{
    picture = filmclock::play();
    QVERIFY(picture);
    SilentRecorder recorder;
    const QString file = recorder.record(2000);
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    const std::vector<int> codes = filmclock::codes(file);
    QVERIFY2(std::abs(double(codes.size()) / 25 - recorder.recorded_s) < 0.15,
             qPrintable(QString::number(codes.size())));
    QVERIFY(std::is_sorted(codes.begin(), codes.end()));
    // 20 ms each, as in the picture itself: the last ones are those of the end.
    const double shown_s = (codes.back() - codes.front()) * 0.02;
    QVERIFY2(std::abs(shown_s - recorder.recorded_s) < 0.3, qPrintable(QString::number(shown_s)));
}

void TestWayland::recording_showsTheRectangle()
{
    picture = filmclock::play();
    QVERIFY(picture);
    const double scale = trueScale();
    SilentRecorder part({128, 128, 256, 256}); // its left half lies in the field of colour
    const QImage shot = mediacheck::frameAt(part.record(500), 5);
    const int side = int(256 * scale);
    QCOMPARE(shot.size(), QSize(side, side));
    for (const int y : {4, side - 5}) {
        QVERIFY(isColourful(shot.pixelColor(4, y)));
        QVERIFY(isColourful(shot.pixelColor(side / 2 - 5, y)));
        QVERIFY(isGrey(shot.pixelColor(side / 2 + 4, y)));
    }
    SilentRecorder corner({0, 0, 512, 100});
    const std::vector<int> codes = filmclock::codes(corner.record(500), scale);
    QVERIFY(std::is_sorted(codes.begin(), codes.end()));
    QVERIFY(codes.back() > codes.front());
}

/// The desktop sends one picture, and then none.
void TestWayland::recording_repeatsAStillScreen()
{
    SilentRecorder recorder;
    recorder.start();
    StillWindow window; // the one thing that happens: without any, this desktop sends no picture at all
    window.showFullScreen();
    QVERIFY(QTest::qWaitFor([&] { return recorder.getState() == ScreenRecord::Running; }, 10'000));
    QElapsedTimer clock;
    clock.start();
    QTest::qWait(3000);
    const double recorded_s = double(clock.elapsed()) / 1000;
    const QString file = recorder.end();
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    const int pictures = int(mediacheck::pictureTimes(file).size());
    QVERIFY(mediacheck::distinctFrames(file) < 10);
    QVERIFY2(std::abs(pictures - 25 * recorded_s) <= 3, qPrintable(QString::number(pictures)));
    const QColor seen = mediacheck::frameAt(file, pictures - 1).pixelColor(400, 300);
    QVERIFY(std::abs(seen.green() - 128) < 10 && seen.red() < 10);
}

void TestWayland::recording_keepsItsSize_whenTheScreenIsTurned()
{
    picture = filmclock::play();
    QVERIFY(picture);
    SilentRecorder recorder;
    QVERIFY(recorder.begin());
    QElapsedTimer clock;
    clock.start();
    const auto restore =
        qScopeGuard([] { compositor({"output HEADLESS-1 mode 1280x720@60Hz transform normal"}); });
    // Each into the middle of the film: 800x600 is 960 wide there, 600x800 is 540.
    const struct
    {
        QString change;
        int width;
    } turns[] = {{"mode 800x600@60Hz", 960},
                 {"transform 90", 540},
                 {"transform 180", 960},
                 {"transform flipped-270", 540}};
    std::vector<int> shown; // the number of a picture some time behind each
    for (const auto& turn : turns) {
        compositor({"output HEADLESS-1 " + turn.change});
        QTest::qWait(1500);
        shown.push_back(int(clock.elapsed() / 40) - 3);
    }
    const QString file = recorder.end();
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    for (size_t i = 0; i < shown.size(); ++i) {
        const InCase in_case(turns[i].change, shown[i]);
        const QImage picture = mediacheck::frameAt(file, shown[i]);
        QCOMPARE(picture.size(), QSize(1280, 720));
        const int left = 640 - turns[i].width / 2;
        const int right = 640 + turns[i].width / 2;
        QVERIFY(picture.pixelColor(left - 8, 200).lightness() < 10);
        QVERIFY(isColourful(picture.pixelColor(left + 8, 200)));
        QVERIFY(isGrey(picture.pixelColor(right - 8, 200)));
        QVERIFY(picture.pixelColor(right + 8, 200).lightness() < 10);
    }
}

void TestWayland::grabber_showsTheScreen()
{
    picture = filmclock::play();
    QVERIFY(picture);
    multimedia::SteppedGrabber grabber;
    QSignalSpy ready(&grabber, &ScreenGrabber::readyRead);
    for (int round = 0; round < 2; ++round) {
        QVERIFY(grabber.start(QGuiApplication::primaryScreen(), {0, 128, 256, 256}, 10));
        grabber.step();
        QTRY_VERIFY(ready.size() >= 3 + 3 * round);
        const multimedia::Yuv420pFrame frame = grabber.takeFrame();
        QCOMPARE(QSize(frame.getWidth(), frame.getHeight()), QSize(256, 256));
        grabber.stop();
        grabber.step();
        QTRY_COMPARE(grabber.getState(), ScreenGrabber::kWaiting);
    }
}

void TestWayland::recording_ends_withPipeWire()
{
    if (QGuiApplication::primaryScreen()->devicePixelRatio() != 1)
        QSKIP("once is enough");
    picture = filmclock::play();
    QVERIFY(picture);
    LogCapture log;
    SilentRecorder recorder;
    QVERIFY(recorder.begin());
    QTest::qWait(1000);
    killServer("RIG_PIPEWIRE_PID");
    const QString file = recorder.end(true);
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    QVERIFY(mediacheck::pictureTimes(file).back() > 0.7);
    QVERIFY2(log.count("[screen]:\tPipeWire has ended") == 1, qPrintable(log.text()));

    recorder.start();
    QCOMPARE(recorder.end(true), QString());
    QCOMPARE(recorder.getState(), ScreenRecord::Waiting);
    QVERIFY2(log.count("[screen]:\tPipeWire does not run") == 1, qPrintable(log.text()));
}

void TestWayland::recording_showsTheSecondScreen()
{
    const auto screens = QGuiApplication::screens();
    if (screens.size() < 2)
        QSKIP("needs two screens");
    QScreen* const shared =
        screens[screens[1]->devicePixelRatio() == 2 ? 1 : 0]; // Compositors order them as they like.
    picture = filmclock::play();
    QVERIFY(picture);
    SilentRecorder recorder({0, 0, 512, 100});
    recorder.setScreen(shared);
    const QString file = recorder.record(500);
    QCOMPARE(mediacheck::frameAt(file, 2).size(), QSize(1024, 200));
    const std::vector<int> codes = filmclock::codes(file, 2);
    QVERIFY(codes.back() > codes.front());
}

void TestWayland::recording_isRefused_withoutBackend()
{
    if (qEnvironmentVariableIsSet("RIG_BACKEND_PID"))
        QSKIP("needs a desktop without a backend");
    LogCapture log;
    SilentRecorder recorder;
    recorder.start();
    QCOMPARE(recorder.end(true), QString());
    QCOMPARE(recorder.getState(), ScreenRecord::Waiting);
    QVERIFY2(log.count("[screen]:\tth") == 1, qPrintable(log.text()));
    QCOMPARE(QDir::temp().entryList({"*.mp4"}), QStringList());
}

QTEST_MAIN(TestWayland)
#include "test_wayland.moc"
