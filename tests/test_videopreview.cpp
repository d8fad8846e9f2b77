#include "multimedia/ffmpeghandler/ffmpeghandler.h"
#include "multimedia/multimediaprovider.h"
#include "multimedia/videoeditor/videoeditor.h"
#include "multimedia/videoeditor/videoimagecontext.h"
#include "multimedia/videopreviewthread/videopreviewthread.h"
#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/videofile.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

#include <QtQml/QQmlContext>
#include <QtQml/QQmlEngine>
#include <QtQuick/QQuickImageProvider>
#include <QtTest/QtTest>

#include <random>
#include <utility>

namespace {

constexpr QSize kBox(120, 96);

/// Whether a picture is the one with this burned in number, give or take one for the loss of two conversions.
bool isNumber(const QImage& image, int number)
{
    const int found = image.isNull() ? -2 : qRound(qRed(image.pixel(image.rect().center())) * 219 / 255.);
    if (qAbs(found - number) > 1)
        qWarning("picture %d in place of %d", found, number);
    return qAbs(found - number) <= 1;
}

VideoEditor* editor()
{
    return VideoEditor::instance();
}

/// What QML would show of a frame.
QImage shown(QQmlEngine& engine, qlonglong id)
{
    auto* provider = static_cast<QQuickImageProvider*>(engine.imageProvider("videoimageprovider"));
    return provider->requestImage(QString::number(id), nullptr, {});
}

} // namespace

class TestVideoPreview : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void handler_makesNoFrame_withoutDecoderOrSize();
    void settings_refuseWhatIsTooSmall();
    void information_isMinusOne_whereNotAnswered();
    void preview_fails_andSaysWhy();
    void preview_fillsFacts();
    void strip_showsKeyFrames();
    void strip_isWhole_whereRowsAreNoWholeVectors();
    void strip_isUpright_whereRotationIsKnown();
    void strip_ends_withDamagedSource();
    void cancel_endsStrip_beforeNextFrame();
    void strip_endsAtOnce_withoutFile();
    void clearPreview_endsPreview_whileItsBeginIsTold();
    void preview_survivesReplacement_whileItSamples();
    void times_mayBeNone_orNoNumber();
    void images_answerById();
    void images_findKeyFrame();
    void videoSize_answersDefault_withoutName();

private:
    /// Waits for the end of the strip.
    void finishStrip() { QTRY_COMPARE(editor()->state(), VideoEditor::VideoEditor_State_Idle); }

    QQmlEngine engine;
};

void TestVideoPreview::initTestCase()
{
    av_log_set_level(AV_LOG_QUIET);
    MultimediaProvider::registType(engine);
}

void TestVideoPreview::init()
{
    editor()->setImageFrameSize(kBox);
    editor()->setTotalGrabImageCount();
}

void TestVideoPreview::handler_makesNoFrame_withoutDecoderOrSize()
{
    FfmpegHandler handler;
    handler.videoFrame = multimedia::createFrame();
    QVERIFY(!handler.initVideoFrame() && !handler.videoFrame);
    handler.videoCodecContext.reset(avcodec_alloc_context3(nullptr));
    handler.videoCodecContext->pix_fmt = AV_PIX_FMT_YUV420P;
    QVERIFY(!handler.initVideoFrame());
    handler.videoCodecContext->width = 33;
    handler.videoCodecContext->height = 17;
    QVERIFY(handler.initVideoFrame() && handler.videoFrame->width == 33);
    handler.close();
    handler.close();
    QVERIFY(!handler.formatContext && !handler.videoCodecContext && !handler.videoFrame);
}

void TestVideoPreview::settings_refuseWhatIsTooSmall()
{
    editor()->setImageFrameSize({8, 8});
    for (const QSize small : {QSize(7, 100), QSize(100, 7), QSize(-1, -1)})
        editor()->setImageFrameSize(small);
    QCOMPARE(editor()->getSize(), QSize(8, 8));
    for (const auto& [asked, got] : {std::pair(0, 9), {9, 9}, {10, 10}, {-5, 9}}) {
        editor()->setTotalGrabImageCount(asked);
        QCOMPARE(editor()->m_totalGrabCount.load(), got);
    }
}

void TestVideoPreview::information_isMinusOne_whereNotAnswered()
{
    for (const int key : {6, 8, 10, 16, 17, 19, 21, -1, 1000})
        QCOMPARE(editor()->getVideoInformation(VideoEditor::VideoInfo(key)), -1);
    editor()->changeVideoInformation([](VideoFacts& facts) { facts.duration = (1LL << 32) + 5; });
    QCOMPARE(editor()->getVideoInformation(VideoEditor::VideoInfo_Duration), 5);
}

void TestVideoPreview::preview_fails_andSaysWhy()
{
    for (const auto& [file, line] : {std::pair("text.mp4", "video editor load video file:"),
                                     {"empty.mp4", "video editor load video file:"},
                                     {"headonly.mp4", "video editor load video file:"},
                                     {"sound.m4a", "didn't find a video stream."},
                                     {"strangesound.mkv", "didn't find audio decodec."},
                                     {"huge.mov", "could not open codec."},
                                     {"endless.h264", ""}, // its duration is unknown
                                     {"missing.mp4", ""},
                                     {".", "video editor load video file:"}}) {
        const InCase in_case(file);
        const LogCapture log;
        QSignalSpy changed(editor(), &VideoEditor::stateChanged);
        QVERIFY2(!editor()->preview(media(file)), file);
        QCOMPARE(changed.size(), 0);
        QCOMPARE(editor()->state(), VideoEditor::VideoEditor_State_Idle);
        QCOMPARE(log.text().isEmpty(), *line == '\0');
        QVERIFY2(log.text().contains(line), qPrintable(log.text()));
    }
}

void TestVideoPreview::preview_fillsFacts()
{
    QSignalSpy changed(editor(), &VideoEditor::stateChanged);
    QVERIFY(editor()->preview(QUrl::fromLocalFile(media("data.mov")).toString()));
    QCOMPARE(changed.size(), 1);
    finishStrip();
    QCOMPARE(changed.size(), 1);
    const QMap<VideoEditor::VideoInfo, int> expected{
        {VideoEditor::VideoInfo_Valid, 1},
        {VideoEditor::VideoInfo_HasVideo, 1},
        {VideoEditor::VideoInfo_Duration, 8000},
        {VideoEditor::VideoInfo_StreamCount, 3},
        {VideoEditor::VideoInfo_VideoWidth, 160},
        {VideoEditor::VideoInfo_VideoHeight, 120},
        {VideoEditor::VideoInfo_VideoFps, 25},
        {VideoEditor::VideoInfo_VideoCodecId, AV_CODEC_ID_H264},
        {VideoEditor::VideoInfo_HasAudio, 1},
        {VideoEditor::VideoInfo_AudioSampleRate, 48000},
        {VideoEditor::VideoInfo_AudioChannels, 1},
        {VideoEditor::VideoInfo_AudioChannelLayout, AV_CH_LAYOUT_MONO},
        {VideoEditor::VideoInfo_AudioCodecId, AV_CODEC_ID_AAC}};
    for (auto fact = expected.begin(); fact != expected.end(); ++fact)
        QCOMPARE(editor()->getVideoInformation(fact.key()), fact.value());
    const VideoInformation record = std::as_const(*editor()).getVideoInformation();
    QVERIFY(record.getVideoBitrate() > 0 && record.getAudioBitRate() > 0);
    QCOMPARE(record.getVideoStreamCount(), 1);
    QCOMPARE(record.getAudioStreamCount(), 1);

    QVERIFY(editor()->preview(media("silent.mp4")));
    QCOMPARE(editor()->getVideoInformation(VideoEditor::VideoInfo_HasAudio), 0);
    finishStrip();
}

void TestVideoPreview::strip_showsKeyFrames()
{
    // A key frame every 2 seconds, a sample every second.
    const QList<int> numbers{0, 0, 50, 50, 100, 100, 150, 150, 150};
    const QList<int> times{0, 0, 2000, 2000, 4000, 4000, 6000, 6000, 6000};
    const QList<int> first{0, 0, 0, 0, 0, 0, 0, 0, 0};
    for (const auto& [file, expected, times_ms] :
         {std::tuple("base.mp4", numbers, times),
          {"base.mov", numbers, times},
          {"base.avi", {0, 0, 0, 50, 100, 100, 150, 150, 150}, {0, 0, 0, 2040, 4040, 4040, 6040, 6040, 6040}},
          {"silent.mp4", numbers, times},
          {"datafirst.mov", numbers, times},
          {"rich.mkv",
           {0, 0, 0, 50, 50, 100, 100, 150, 150},
           {21, 21, 21, 2021, 2021, 4021, 4021, 6021, 6021}},
          {"opengop.mp4", numbers, times},
          {"longgop.mp4", first, first},
          {"twovideos.mp4", {219, 219, 219, 219, 219, 219, 219, 219, 219}, first}}) {
        const InCase in_case(file);
        QCoreApplication::processEvents(); // frames of the strip before, on their way
        QSignalSpy grabbed(editor(), &VideoEditor::grabFrameID);
        QVERIFY2(editor()->preview(media(file)), file);
        QTRY_COMPARE(grabbed.size(), expected.size());
        finishStrip();
        for (int i = 0; i < expected.size(); ++i) {
            QCOMPARE(grabbed[i][0].toLongLong(), qlonglong(i));
            QCOMPARE(grabbed[i][1].toInt(), times_ms[i]);
            const QImage image = shown(engine, i);
            QCOMPARE(image.size(), QSize(kBox.width(), kBox.width()));
            QVERIFY(isNumber(image, expected[i]));
        }
    }
}

void TestVideoPreview::strip_isWhole_whereRowsAreNoWholeVectors()
{
    QVERIFY(editor()->preview(media("white.mp4")));
    finishStrip();
    const QImage image = shown(engine, 0);
    for (int x = 0; x < image.width(); ++x)
        QCOMPARE(image.pixelColor(x, 60), QColor(Qt::white));
}

void TestVideoPreview::strip_isUpright_whereRotationIsKnown()
{
    for (const auto& [file, rotation, size, shown_size, red_corner] :
         {std::tuple("rotate90.mp4", 90, QSize(90, 120), QSize(120, 160), "top right"),
          {"rotate270.mp4", 270, QSize(90, 120), QSize(120, 160), "bottom left"},
          {"rotate180.mov", 180, QSize(128, 96), QSize(120, 160), "bottom right"},
          {"tag90.mkv", 90, QSize(90, 120), QSize(120, 160), "top right"},
          {"large90.mkv", 90, QSize(67, 120), QSize(1080, 1920), ""}}) {
        const InCase in_case(file);
        QVERIFY2(editor()->preview(media(file)), file);
        finishStrip();
        QCOMPARE(editor()->getVideoInformation(VideoEditor::VideoInfo_VideoRotate), rotation);
        QCOMPARE(editor()->getVideoInformation(VideoEditor::VideoInfo_VideoWidth), shown_size.width());
        QCOMPARE(editor()->getVideoInformation(VideoEditor::VideoInfo_VideoHeight), shown_size.height());
        const QImage image = shown(engine, 0);
        QCOMPARE(image.size(), size);
        if (*red_corner != '\0')
            QCOMPARE(redCorners(image), QString(red_corner));
    }
}

void TestVideoPreview::strip_ends_withDamagedSource()
{
    for (const char* file : {"truncated.mp4", "truncated.mkv", "corrupt.mp4", "corrupt.ts", "base.ts",
                             "vfr.mkv", "base.webm", "cover.mp4"}) {
        QCoreApplication::processEvents(); // frames of the strip before, on their way
        QSignalSpy grabbed(editor(), &VideoEditor::grabFrameID);
        QVERIFY2(editor()->preview(media(file)), file);
        finishStrip();
        QTRY_VERIFY2(!grabbed.isEmpty(), file);
        for (int i = 0; i < grabbed.size(); ++i)
            QCOMPARE(grabbed[i][0].toLongLong(), qlonglong(i));
    }
}

void TestVideoPreview::cancel_endsStrip_beforeNextFrame()
{
    VideoPreviewThread thread;
    QVERIFY(thread.load(media("base.mp4")));
    std::atomic<int> frames{0};
    QObject context;
    connect(
        editor(), &VideoEditor::grabFrameID, &context,
        [&] {
            ++frames;
            thread.cancel();
        },
        Qt::DirectConnection);
    thread.start();
    QVERIFY(thread.wait());
    QCOMPARE(frames.load(), 1);
    QCOMPARE(editor()->state(), VideoEditor::VideoEditor_State_Idle);

    QVERIFY(thread.load(media("base.mp4")));
    thread.start();
    thread.cancel();
    QVERIFY(thread.wait());
    QVERIFY(frames.load() <= 2);
    QVERIFY(!thread.getAVCodecContext());
}

void TestVideoPreview::strip_endsAtOnce_withoutFile()
{
    QSignalSpy grabbed(editor(), &VideoEditor::grabFrameID);
    VideoPreviewThread thread;
    thread.readMetaInfo();
    thread.fastPreview();
    QVERIFY(thread.load(media("base.mp4")));
    QVERIFY(!thread.load(media("strangesound.mkv")));
    thread.start();
    QVERIFY(thread.wait());
    QCOMPARE(grabbed.size(), 0);
    QCOMPARE(editor()->state(), VideoEditor::VideoEditor_State_Idle);
}

void TestVideoPreview::clearPreview_endsPreview_whileItsBeginIsTold()
{
    QSignalSpy grabbed(editor(), &VideoEditor::grabFrameID);
    {
        QObject context;
        connect(editor(), &VideoEditor::stateChanged, &context, [] { editor()->clearPreview(); });
        QVERIFY(!editor()->preview(media("base.mp4")));
    }
    QCOMPARE(editor()->state(), VideoEditor::VideoEditor_State_Idle);
    QCOMPARE(grabbed.size(), 0);
}

void TestVideoPreview::preview_survivesReplacement_whileItSamples()
{
    constexpr unsigned kSeed = 20;
    qInfo("seed %u", kSeed);
    std::mt19937 random(kSeed);
    for (int i = 0; i < 60; ++i) {
        QVERIFY(
            editor()->preview(media(i % 2 ? QStringLiteral("heavy.mkv") : QStringLiteral("rotate90.mp4"))));
        QTest::qWait(int(random() % 12));
        // Read as QML would, while the strip is sampled.
        editor()->getVideoInformation(VideoEditor::VideoInfo_VideoWidth);
        shown(engine, 1);
        if (i % 3 == 0)
            editor()->clearPreview();
    }
    QSignalSpy grabbed(editor(), &VideoEditor::grabFrameID);
    QVERIFY(editor()->preview(media("base.mp4")));
    QCoreApplication::processEvents(); // frames of the strip before, on their way
    QTRY_VERIFY(!grabbed.isEmpty() && grabbed.last()[0].toInt() == 8);
    finishStrip();
    QVERIFY(isNumber(shown(engine, 0), 0));
    QVERIFY(isNumber(shown(engine, 8), 150));
    editor()->clearPreview();
    QVERIFY(shown(engine, 0).isNull());
}

void TestVideoPreview::times_mayBeNone_orNoNumber()
{
    VideoPreviewThread thread;
    QVERIFY(thread.getVideoCaptureFrameIndex(8, 0).isEmpty());
    QVERIFY(qIsNaN(thread.getVideoCaptureFrameIndex(8, 1).first()));
    QVERIFY(!thread.getVideoFrameByTime(0));
    QVERIFY(thread.load(media("base.mp4")));
    thread.getVideoFrameByTime(qQNaN());
    QVERIFY(thread.close());
}

void TestVideoPreview::images_answerById()
{
    QImage edit(1, 1, QImage::Format_RGB32);
    QImage frame(2, 2, QImage::Format_RGB32);
    QImage newest(3, 3, QImage::Format_RGB32);
    VideoImageContext context;
    for (const char* id : {"0", "edit", "watermark", ""})
        QVERIFY(context.getImage(id).isNull());
    context.setEditImage(edit);
    QCOMPARE(context.setImage(frame, 7, 100, true), 7);
    QCOMPARE(context.setImage(newest, 8, 200, false), 8);
    QCOMPARE(context.getImage("7"), frame);
    for (const char* id : {"8", "17", "Edit", "07", ""})
        QCOMPARE(context.getImage(id), newest);
    context.clear();
    QVERIFY(context.getImage("7").isNull());
    QCOMPARE(context.getImage("edit"), edit);
    QCOMPARE(context.property("imagePts").toLongLong(), 8);
    QCOMPARE(context.property("keyFrame").toBool(), false);

    QVERIFY(context.getImage("watermark").isNull());
    context.bindQmlEngine(nullptr);
    QQmlEngine first;
    {
        QQmlEngine second;
        context.bindQmlEngine(&first);
        context.bindQmlEngine(&second);
        context.bindQmlEngine(&second);
    }
    context.setImage(frame, 1, 0, true);
    QCOMPARE(shown(first, 1), frame);
}

void TestVideoPreview::images_findKeyFrame()
{
    const auto found = [](const QList<qlonglong>& key_times, qlonglong time) {
        VideoImageProvider provider;
        provider.setFrame("no key", {}, 3000, false);
        for (const qlonglong key_time : key_times) {
            provider.setFrame("replaced", {}, key_time, true);
            provider.setFrame(QString::number(key_time), {}, key_time, true);
        }
        long long key_time = -7;
        QString id = "-7";
        [&] { QCOMPARE(provider.getPreviewImage(time, key_time, id), !key_times.isEmpty()); }();
        return id.toLongLong() == key_time ? int(key_time) : -1;
    };
    for (const auto& [time, key_time] :
         {std::pair(0, 0), {1, 0}, {3999, 0}, {4000, 4000}, {7999, 4000}, {9000, 8000}, {-1, 8000}})
        QCOMPARE(found({0, 4000, 8000}, time), key_time);
    for (const int time : {0, 5000, 9000, -1})
        QCOMPARE(found({5000}, time), 5000);
    QCOMPARE(found({}, 1), -7);
}

void TestVideoPreview::videoSize_answersDefault_withoutName()
{
    QCOMPARE(editor()->videoSize({}), QSize(720, 720));
    QCOMPARE(editor()->videoSize(media("rotate90.mp4")), QSize(120, 160));
    QCOMPARE(editor()->videoSize(media("text.mp4")), QSize(-1, -1));
    QCOMPARE(editor()->videoSize(QUrl::fromLocalFile(media("base.mp4")).toString()), QSize(160, 120));
}

QTEST_GUILESS_MAIN(TestVideoPreview)
#include "test_videopreview.moc"
