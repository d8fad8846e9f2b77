#include "multimedia/base/captureinput.h"
#include "multimedia/base/formatin.h"
#include "multimedia/base/grabscreen.h"
#include "multimedia/devicemgr/permission.h"
#include "multimedia/screenrecord/steppedgrabber.h"
#include "tests/support/logcapture.h"
#include "tests/support/testscreen.h"

extern "C" {
#include <libavutil/frame.h>
}

#include <QtTest/QtTest>

#include <map>
#include <mutex>

using namespace multimedia;

class TestCapture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { picture.reset(); }
    void captureInput_asksForThePointer();
    void captureInput_isEmpty_whereNoScreenIs();
    void grabScreen_keepsItsPace();
    void grabScreen_reports_whenThereIsNothingToGrab();
    void takeFrame_isEmpty_beforeTheFirst();
    void screenGrabber_showsTheRectangle();
    void screenGrabber_endsCleanly_whileItRuns();

private:
    std::unique_ptr<TestScreen> picture;
};

void TestCapture::initTestCase()
{
    picture = std::make_unique<TestScreen>();
    QVERIFY(picture->isShown());
}

void TestCapture::captureInput_asksForThePointer()
{
    const CaptureInput mac = avfoundationInput(25, 3);
    QCOMPARE(mac.format, std::string("avfoundation"));
    QCOMPARE(mac.device, std::string("3:none"));
    const std::vector<std::pair<std::string, std::string>> options = {
        {"capture_cursor", "1"}, {"capture_mouse_clicks", "1"}, {"framerate", "25/1"}};
    QCOMPARE(mac.options, options);

    const CaptureInput x11 = captureInput(10, getVideoIndex(QGuiApplication::primaryScreen()));
    const std::map<std::string, std::string> x11_options(x11.options.begin(), x11.options.end());
    QCOMPARE(x11_options.at("draw_mouse"), std::string("1"));
}

void TestCapture::captureInput_isEmpty_whereNoScreenIs()
{
    QCOMPARE(getVideoIndex(nullptr), -1);
    for (const int nowhere : {-1, 1}) {
        LogCapture log;
        QVERIFY(captureInput(25, nowhere).format.empty());
        QVERIFY(!FormatIn::createVideo({25, nowhere}));
        QCOMPARE(log.count("[createVideo]:\terror in open video format\t"), 1);
    }
}

void TestCapture::grabScreen_keepsItsPace()
{
    constexpr int kFrames = 20;
    constexpr int kRate = 25;
    std::mutex mutex;
    std::vector<FrameHandle> frames;
    const auto count = [&] {
        std::lock_guard lock(mutex);
        return int(frames.size());
    };
    GrabScreen grabber({[&](FrameHandle frame) {
                            std::lock_guard lock(mutex);
                            frames.push_back(std::move(frame));
                        },
                        QGuiApplication::primaryScreen(),
                        {70, 130, 301, 200},
                        kRate});
    QElapsedTimer clock;
    clock.start();
    grabber.start();
    QTRY_VERIFY(count() >= kFrames);
    QVERIFY(clock.elapsed() >= (kFrames - 1) * 1000 / kRate); // never faster than its pace
    grabber.stop();
    FrameHandle frame;
    {
        std::lock_guard lock(mutex);
        frame = std::move(frames.front());
    }
    QCOMPARE(QSize(frame->width, frame->height), QSize(301, 200));
    QCOMPARE(frame->format, int(AV_PIX_FMT_BGRA));
    const QColor painted = TestScreen::colourAt(0, 70, 130);
    QCOMPARE(QColor(frame->data[0][2], frame->data[0][1], frame->data[0][0]), painted);
}

void TestCapture::grabScreen_reports_whenThereIsNothingToGrab()
{
    LogCapture log;
    int frames = 0;
    {
        GrabScreen grabber({[&](FrameHandle) { ++frames; }, nullptr, {0, 0, 10, 10}, 0});
        grabber.start();
        QTRY_VERIFY(log.count("[run]:\terror in grab screen") >= 1);
    }
    QCOMPARE(frames, 0);
}

void TestCapture::takeFrame_isEmpty_beforeTheFirst()
{
    ScreenGrabber grabber;
    LogCapture log;
    const Yuv420pFrame frame = grabber.takeFrame();
    QCOMPARE(log.count("[Yuv420pFrame]:\tinvalid frame"), 1);
    QVERIFY(frame.isValid());
    QCOMPARE(QSize(frame.getWidth(), frame.getHeight()), QSize(0, 0));
    QVERIFY(!frame.getYChannel() && !frame.getUChannel() && !frame.getVChannel());
}

void TestCapture::screenGrabber_showsTheRectangle()
{
    LogCapture log;
    SteppedGrabber grabber;
    QSignalSpy ready(&grabber, &ScreenGrabber::readyRead);
    grabber.stop(); // it does not run
    QVERIFY(grabber.start(QGuiApplication::primaryScreen(), {130, 66, 101, 51}, 25));
    QCOMPARE(grabber.getState(), ScreenGrabber::kStarting);
    QVERIFY(!grabber.start(QGuiApplication::primaryScreen(), {}, 10));
    QCOMPARE(log.count("[start]:\tinvalid state"), 1);
    grabber.stop(); // nor has it started yet
    QCOMPARE(grabber.getState(), ScreenGrabber::kStarting);
    QCOMPARE(int(grabber.getFrameRate()), 25);

    grabber.step();
    QTRY_COMPARE(grabber.getState(), ScreenGrabber::kRunning);
    QTRY_VERIFY(ready.size() >= 3);
    const Yuv420pFrame frame = grabber.takeFrame();
    QCOMPARE(QSize(frame.getWidth(), frame.getHeight()), QSize(102, 52));
    const QColor painted = TestScreen::colourAt(0, 130, 66);
    const double luma =
        16 + (65.5 * painted.red() + 128.6 * painted.green() + 25 * painted.blue()) / 255; // limited range
    QVERIFY(std::abs(frame.getYChannel()[0] - luma) < 6);

    grabber.stop();
    QCOMPARE(grabber.getState(), ScreenGrabber::kStopping);
    grabber.step();
    QTRY_COMPARE(grabber.getState(), ScreenGrabber::kWaiting);
    QVERIFY(frame.getYChannel()[0] > 0); // the pixels outlive the grabber's stages
    QVERIFY(grabber.start(QGuiApplication::primaryScreen(), {0, 0, 64, 64}, 10));
}

void TestCapture::screenGrabber_endsCleanly_whileItRuns()
{
    for (int round = 0; round < 10; ++round) {
        SteppedGrabber grabber;
        QVERIFY(grabber.start(QGuiApplication::primaryScreen(), {0, 0, 640, 360}, 60));
        grabber.step();
        QTRY_COMPARE(grabber.getState(), ScreenGrabber::kRunning);
        QTest::qWait(10 * round);
    }
}

QTEST_MAIN(TestCapture)
#include "test_capture.moc"
