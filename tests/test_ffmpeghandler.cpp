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

void TestFfmpegHandler::initVideoFrame_followsTheDecoder()
{
    MultimediaCategoryLogging().setEnabled(QtDebugMsg, true);
    LogCapture log;
    FfmpegHandler handler;
    handler.videoFrame = multimedia::createFrame();
    QVERIFY(!handler.initVideoFrame());
    QVERIFY(!handler.videoFrame);
    handler.videoCodecContext.reset(avcodec_alloc_context3(nullptr));
    handler.videoCodecContext->pix_fmt = AV_PIX_FMT_YUV420P;
    QVERIFY(!handler.initVideoFrame()); // of no size
    QCOMPARE(log.count("could not allocate frame data."), 2);

    handler.videoCodecContext->width = 33;
    handler.videoCodecContext->height = 17;
    QVERIFY(handler.initVideoFrame());
    QCOMPARE(handler.videoFrame->width, 33);
    QCOMPARE(handler.videoFrame->format, int(AV_PIX_FMT_YUV420P));
    QCOMPARE(handler.videoFrame->pts, int64_t(0));
    handler.freeVideoFrame();
    QVERIFY(!handler.videoFrame);
}

QTEST_GUILESS_MAIN(TestFfmpegHandler)
#include "test_ffmpeghandler.moc"
