#include "multimedia/screenrecord/screenrecord.h"
#include "tests/support/filmclock.h"
#include "tests/support/logcapture.h"
#include "tests/support/mediacheck.h"
#include "tests/support/process.h"
#include "tests/support/soundserver.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <QtTest/QtTest>

#include <atomic>
#include <dlfcn.h>
#include <functional>
#include <mutex>
#include <thread>
#include <unistd.h>

using multimedia::ScreenRecord;
using namespace std::chrono_literals;

namespace {

/// What the machine does to the recording, in the place of FFmpeg's functions below.
struct Hindrance
{
    std::mutex mutex;
    std::function<void()> before_capture;
    std::function<void()> before_encode;
    std::atomic<const char*> capture_rate = nullptr;
    std::atomic<bool> h264 = true;

    void set(std::function<void()> capture, std::function<void()> encode = {})
    {
        std::lock_guard lock(mutex);
        before_capture = std::move(capture);
        before_encode = std::move(encode);
    }
    void call(std::function<void()> Hindrance::*which)
    {
        std::function<void()> function;
        {
            std::lock_guard lock(mutex);
            function = this->*which;
        }
        if (function)
            function();
    }
};

Hindrance& hindrance()
{
    static Hindrance instance;
    return instance;
}

template<typename Function>
Function* real(Function*, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

// They stand before those of the shared libraries.
extern "C" {

int avformat_open_input(AVFormatContext** context, const char* url, const AVInputFormat* format,
                        AVDictionary** options)
{
    static const auto open = real(&avformat_open_input, "avformat_open_input");
    if (const char* rate = hindrance().capture_rate; rate && options && format)
        av_dict_set(options, "framerate", rate, 0);
    return open(context, url, format, options);
}

int av_read_frame(AVFormatContext* context, AVPacket* packet)
{
    static const auto read = real(&av_read_frame, "av_read_frame");
    if (qstrcmp(context->iformat->name, "x11grab") == 0)
        hindrance().call(&Hindrance::before_capture);
    return read(context, packet);
}

int avcodec_send_frame(AVCodecContext* codec, const AVFrame* frame)
{
    static const auto send = real(&avcodec_send_frame, "avcodec_send_frame");
    if (codec->codec_type == AVMEDIA_TYPE_VIDEO)
        hindrance().call(&Hindrance::before_encode);
    return send(codec, frame);
}

const AVCodec* avcodec_find_encoder_by_name(const char* name)
{
    static const auto find = real(&avcodec_find_encoder_by_name, "avcodec_find_encoder_by_name");
    return hindrance().h264 ? find(name) : nullptr;
}
}

namespace {

qint64 residentBytes()
{
    QFile statm("/proc/self/statm");
    return statm.open(QIODevice::ReadOnly) ? statm.readAll().split(' ')[1].toLongLong() * sysconf(_SC_PAGESIZE) : 0;
}

/// Captures at most so often.
std::function<void()> every(std::chrono::milliseconds interval)
{
    return [interval, next = std::chrono::steady_clock::now()]() mutable {
        std::this_thread::sleep_until(next);
        next = std::max(next + interval, std::chrono::steady_clock::now());
    };
}

/// After each hole the capture gives at once all that it owes.
std::function<void()> inBursts(std::chrono::milliseconds hole, std::chrono::milliseconds period)
{
    return [hole, period, next = std::chrono::steady_clock::now()]() mutable {
        if (std::chrono::steady_clock::now() < next)
            return;
        std::this_thread::sleep_for(hole);
        next = std::chrono::steady_clock::now() + period - hole;
    };
}

} // namespace

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
    void waitFor(ScreenRecord& recorder, ScreenRecord::State state)
    {
        QTRY_COMPARE_WITH_TIMEOUT(recorder.getState(), state, 30'000);
    }

    std::unique_ptr<QProcess> picture;
};

void TestRecordClock::initTestCase()
{
    picture = filmclock::play();
    QVERIFY(picture);
}

void TestRecordClock::cleanup()
{
    hindrance().set({});
    hindrance().capture_rate = nullptr;
    hindrance().h264 = true;
}

void TestRecordClock::film_keepsItsTime_whateverTheMachineDoes()
{
    hindrance().capture_rate = "33/1";
    ScreenRecord recorder;
    recorder.setScreen(QGuiApplication::primaryScreen());
    recorder.setRect({0, 0, 640, 360});
    recorder.start();
    waitFor(recorder, ScreenRecord::Running);
    QElapsedTimer clock;
    clock.start();
    const auto slowly = [] { std::this_thread::sleep_for(60ms); };
    struct Hour
    {
        int until_s;
        std::function<void()> capture;
        std::function<void()> encode;
    };
    for (const Hour& hour : {Hour{10, {}, {}}, Hour{20, every(100ms), {}}, Hour{28, every(50ms), {}},
                             Hour{34, inBursts(200ms, 400ms), {}}, Hour{45, inBursts(2000ms, 5000ms), {}},
                             Hour{49, {}, slowly}, Hour{60, {}, {}}}) {
        hindrance().set(hour.capture, hour.encode);
        if (hour.until_s == 28) { // the microphone has a hole, too
            QTest::qWait(1000);
            SoundServer::control({"suspend-source", "mic", "1"});
            QTest::qWait(1700);
            SoundServer::control({"suspend-source", "mic", "0"});
        }
        QTest::qWait(std::max<int>(0, hour.until_s * 1000 - int(clock.elapsed())));
    }
    const double recorded_s = double(clock.elapsed()) / 1000;
    recorder.stop();
    QElapsedTimer stopping;
    stopping.start();
    waitFor(recorder, ScreenRecord::Waiting);
    qInfo("stopped within %lld ms", stopping.elapsed());

    const QString file = recorder.getFile();
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    const QJsonObject probed = mediacheck::probe(file);
    for (const char* kind : {"video", "audio"}) {
        const double length = mediacheck::seconds(mediacheck::stream(probed, kind));
        QVERIFY2(std::abs(length - recorded_s) < 0.1, qPrintable(QStringLiteral("%1: %2 of %3").arg(kind).arg(length).arg(recorded_s)));
    }
    const auto offsets = filmclock::offsets(file);
    for (const filmclock::Offset& offset : offsets)
        qInfo("%6.2f s: %4.0f ms", offset.film_s, offset.offset_s * 1000);
    QVERIFY2(offsets.size() > 45, qPrintable(QString::number(offsets.size())));
    QVERIFY2(filmclock::spread(offsets) < 0.04, qPrintable(QString::number(filmclock::spread(offsets))));
    QFile::remove(file);
}

void TestRecordClock::memory_isBounded_whenTheEncoderIsSlow()
{
    constexpr int kMegabyte = 1 << 20;
    ScreenRecord recorder;
    recorder.setScreen(QGuiApplication::primaryScreen());
    recorder.setRect({0, 0, 1920, 1080});
    recorder.start();
    waitFor(recorder, ScreenRecord::Running);
    QElapsedTimer clock;
    clock.start();
    QTest::qWait(500);
    const auto before = residentBytes();
    // A second of pictures is 200 MB as captured and 75 MB as scaled.
    hindrance().set({}, [] { std::this_thread::sleep_for(400ms); });
    qint64 most = 0;
    while (clock.elapsed() < 6000) {
        QTest::qWait(50);
        most = std::max(most, residentBytes() - before);
    }
    hindrance().set({});
    const double recorded_s = double(clock.elapsed()) / 1000;
    recorder.stop();
    waitFor(recorder, ScreenRecord::Waiting);
    QVERIFY2(most < 400 * kMegabyte, qPrintable(QStringLiteral("%1 MiB").arg(most / kMegabyte)));
    const double length = mediacheck::seconds(mediacheck::stream(mediacheck::probe(recorder.getFile()), "video"));
    QVERIFY2(std::abs(length - recorded_s) < 0.1, qPrintable(QString::number(length)));
    QFile::remove(recorder.getFile());
}

void TestRecordClock::encoder_isMpeg4_withoutH264()
{
    hindrance().h264 = false;
    LogCapture log;
    ScreenRecord recorder;
    recorder.setScreen(QGuiApplication::primaryScreen());
    recorder.setRect({0, 0, 640, 360});
    recorder.start();
    waitFor(recorder, ScreenRecord::Running);
    QTest::qWait(3000);
    recorder.stop();
    waitFor(recorder, ScreenRecord::Waiting);
    QCOMPARE(log.count("[openVideo]:\tno H.264 encoder, MPEG-4 is recorded"), 1);
    const QString file = recorder.getFile();
    QCOMPARE(mediacheck::decodeErrors(file), QString());
    const QJsonObject video = mediacheck::stream(mediacheck::probe(file), "video");
    QCOMPARE(video["codec_name"].toString(), QStringLiteral("mpeg4"));
    QVERIFY(filmclock::offsets(file).size() >= 2); // it can be read
    QFile::remove(file);
}

QTEST_MAIN(TestRecordClock)
#include "test_recordclock.moc"
