#include "multimedia/base/warning.h"
#include "multimedia/ffmpeghandler/ffmpeghandler.h"
#include "tests/support/logcapture.h"

#include <QtCore/QLoggingCategory>
#include <QtTest/QtTest>

/// The holder of one open media file.
class TestFfmpegHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void close_releasesAll_andMayBeRepeated();
    void initVideoFrame_followsTheDecoder_data();
    void initVideoFrame_followsTheDecoder();
};

void TestFfmpegHandler::close_releasesAll_andMayBeRepeated()
{
    FfmpegHandler handler;
    QVERIFY(handler.formatContext);
    QCOMPARE(handler.videoStreamIndex, -1);
    handler.videoStreamIndex = 1;
    handler.videoFrame = multimedia::createFrame();
    handler.rgbFrame = multimedia::createFrame();
    handler.rgbBuffer.reset(static_cast<uint8_t*>(av_malloc(16)));
    handler.videoCodecContext.reset(avcodec_alloc_context3(nullptr));
    handler.close();
    handler.close();
    QVERIFY(!handler.formatContext && !handler.videoCodecContext && !handler.audioCodecContext);
    QVERIFY(!handler.videoFrame && !handler.rgbFrame && !handler.rgbBuffer && !handler.swsContext);
    QCOMPARE(handler.videoStreamIndex, 1);
}

void TestFfmpegHandler::initVideoFrame_followsTheDecoder_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<bool>("ok");
    QTest::newRow("picture") << 33 << true;
    QTest::newRow("no size") << 0 << false;
    QTest::newRow("no decoder") << -1 << false;
}

void TestFfmpegHandler::initVideoFrame_followsTheDecoder()
{
    QFETCH(int, width);
    QFETCH(bool, ok);
    MultimediaCategoryLogging().setEnabled(QtDebugMsg, true);
    LogCapture log;
    FfmpegHandler handler;
    handler.videoFrame = multimedia::createFrame();
    if (width >= 0) {
        handler.videoCodecContext.reset(avcodec_alloc_context3(nullptr));
        handler.videoCodecContext->pix_fmt = AV_PIX_FMT_YUV420P;
        handler.videoCodecContext->width = width;
        handler.videoCodecContext->height = 17;
    }
    QCOMPARE(handler.initVideoFrame(), ok);
    QCOMPARE(bool(handler.videoFrame), ok);
    QCOMPARE(log.count("could not allocate frame data."), ok ? 0 : 1);
    if (!ok)
        return;
    QCOMPARE(handler.videoFrame->width, width);
    QCOMPARE(handler.videoFrame->format, int(AV_PIX_FMT_YUV420P));
    QCOMPARE(handler.videoFrame->pts, int64_t(0));
    handler.freeVideoFrame();
    QVERIFY(!handler.videoFrame);
}

QTEST_GUILESS_MAIN(TestFfmpegHandler)
#include "test_ffmpeghandler.moc"
