#include "multimedia/gifhandler/compressgif.h"
#include "multimedia/gifhandler/gifhandler.h"
#include "tests/support/colour.h"
#include "tests/support/files.h"
#include "tests/support/gifwriter.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/mediacheck.h"
#include "tests/support/underway.h"

#include <QtTest/QtTest>

#include <future>
#include <memory>

namespace {

using Results = QList<QPair<QString, bool>>;

/// A handler that keeps its reports.
class Handler : public GifHandler
{
public:
    Handler()
    {
        connect(this, &GifHandler::sigCompressComplete, this, [this](const QString& id, bool ok) {
            results.append({id, ok});
        });
    }

    Results results;
};

/// Time and duration of every frame, as `ffprobe` reads them.
QByteArray timing(const QString& path)
{
    return mediacheck::output(QStringLiteral("ffprobe"), {"-v", "error", "-of", "csv=p=0", "-show_entries",
                                                          "packet=pts_time,duration_time", path});
}

/// True if `area` of `picture` has on average about this colour, whatever the dither.
bool looksLike(const QImage& picture, const QRect& area, const QColor& colour)
{
    const QImage mean = picture.copy(area).scaled(1, 1, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (!isNear(mean.pixelColor(0, 0), colour))
        qWarning() << area << "is" << mean.pixelColor(0, 0) << "and not" << colour;
    return isNear(mean.pixelColor(0, 0), colour);
}

} // namespace

class TestGif : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { av_log_set_level(AV_LOG_QUIET); }
    void init();
    void compress_followsTheRules();
    void compress_keepsFramesAndTiming();
    void compress_showsWhatTheSourceShows();
    void transcode_playsAnywhere();
    void compress_refusesSource();
    void compress_failsOnDestination();
    void compress_cancelledWhileOpening_isNoFailure();
    void queue_runsInOrder_andRefusesAtOnce();
    void batch_readsItsMaps();
    void cancel_endsTheHead_andDropsTheWaiting();
    void cancelAll_keepsOldResultsFromNewRequests();
    void report_mayChangeTheQueue();
    void destruction_endsWhatRuns();
    void cancelSync_endsTheSynchronousRun();

private:
    QString path(const QString& name) const { return folder->filePath(name); }
    QString write(const QString& name, const QByteArray& content) const;
    /// It has no trailer, and needs none.
    QString shortGif() const { return write("in.gif", GifWriter(40, 30).greys(3, 5).unfinished()); }
    /// A GIF that takes several seconds.
    QString longGif() const;

    std::unique_ptr<QTemporaryDir> folder;
};

void TestGif::init()
{
    folder = std::make_unique<QTemporaryDir>();
    QVERIFY(folder->isValid());
}

QString TestGif::write(const QString& name, const QByteArray& content) const
{
    writeFile(path(name), content);
    return path(name);
}

QString TestGif::longGif() const
{
    GifWriter gif(1500, 1500);
    for (int i = 0; i < 600; ++i)
        gif.frame({i, i, 1, 1}, 4, GifWriter::Red);
    return write("long.gif", gif.finished());
}

void TestGif::compress_followsTheRules()
{
    const QSize none(-1, -1);
    for (const auto& [name, source, level, target, result] :
         {std::tuple("nothing asked", QSize(100, 60), 0, none, QSize(100, 60)),
          {"half", QSize(100, 60), 1, none, QSize(50, 30)},
          {"half of odd", QSize(101, 51), 1, none, QSize(51, 26)},
          {"half of one", QSize(1, 1), 1, none, QSize(1, 1)},
          {"unknown level", QSize(100, 60), 2, none, QSize(100, 60)},
          {"side of 0", QSize(100, 60), 0, QSize(0, 100), QSize(100, 60)},
          {"smaller", QSize(100, 60), 0, QSize(50, 30), QSize(50, 30)},
          {"smaller, other ratio", QSize(100, 60), 0, QSize(50, 50), QSize(50, 30)},
          {"wide, by width", QSize(100, 100), 0, QSize(80, 20), QSize(20, 20)},
          {"narrow, by height", QSize(200, 100), 0, QSize(50, 100), QSize(50, 25)},
          {"square counts as narrow", QSize(200, 100), 0, QSize(50, 50), QSize(50, 25)},
          {"one side smaller", QSize(200, 100), 0, QSize(300, 50), QSize(100, 50)},
          {"side vanishes", QSize(1000, 1), 0, QSize(10, 10), QSize()},
          {"stretched", QSize(100, 100), 0, QSize(200, 100), QSize(200, 100)},
          {"target and half", QSize(100, 60), 1, QSize(100, 60), QSize(50, 30)},
          {"target below half", QSize(100, 60), 1, QSize(20, 12), QSize(20, 12)},
          {"one side over half", QSize(100, 100), 1, QSize(90, 10), QSize(50, 50)}}) {
        const InCase in_case(name);
        init();
        const QString input =
            write("in.gif", GifWriter(source.width(), source.height()).greys(4, 5).finished());
        GifHandler handler;
        const bool ok = handler.compressGifSync("id", input, path("new/folder/out.gif"), level, target);
        QVERIFY2(ok == result.isValid(), name);
        if (!ok)
            continue;
        const QJsonObject video = mediacheck::stream(mediacheck::probe(path("new/folder/out.gif")), "video");
        QVERIFY2(QSize(video["width"].toInt(), video["height"].toInt()) == result, name);
        QCOMPARE(video["nb_read_frames"].toString(), QStringLiteral("4"));
        QCOMPARE(mediacheck::decodeErrors(path("new/folder/out.gif")), QString());
    }
}

void TestGif::compress_keepsFramesAndTiming()
{
    const QRect screen(0, 0, 40, 30);
    GifWriter uneven(40, 30);
    for (const int delay : {7, 13, 200, 2, 50, 90})
        uneven.frame(screen, delay, 20 + delay % 100);
    GifWriter same(40, 30);
    same.frame(screen, 10, 50).frame(screen, 20, 50).frame(screen, 30, 50);
    for (const QByteArray& gif :
         {uneven.finished(), same.finished(), GifWriter(40, 30).greys(1, 300).finished(),
          GifWriter(40, 30).greys(5, 0).finished(), GifWriter(8, 8).greys(100, 3).finished()}) {
        const InCase in_case(gif.size());
        const QString input = write("in.gif", gif);
        GifHandler handler;
        QVERIFY(handler.compressGifSync("id", input, path("out.gif"), 1, {}));
        QCOMPARE(timing(path("out.gif")), timing(input));
    }
}

/// Transparency, and what becomes of a picture when the next one comes. Nothing is transparent afterwards.
void TestGif::compress_showsWhatTheSourceShows()
{
    const QRect screen(0, 0, 160, 120);
    const QRect left(0, 0, 40, 40);
    const QRect right(80, 40, 40, 40);
    const QRect middle(70, 10, 20, 20);
    const auto disc = [](int x, int y) {
        const int dx = x - 80;
        const int dy = y - 60;
        return dx * dx + dy * dy < 50 * 50 ? GifWriter::Blue : GifWriter::Green;
    };
    const QString input = write("in.gif", GifWriter(160, 120)
                                              .frame(screen, 10, disc, GifWriter::Keep, GifWriter::Green)
                                              .frame(left, 10, GifWriter::Red, GifWriter::Previous)
                                              .frame(right, 10, GifWriter::Green, GifWriter::Background)
                                              .frame(middle, 10, GifWriter::Red)
                                              .finished());
    GifHandler handler;
    QVERIFY(handler.compressGifSync("id", input, path("out.gif"), 0, {}));
    QVERIFY(handler.gifTranscodeToMP4("id", input, path("out.mp4")));

    const auto inner = [](const QRect& area) { return area.adjusted(6, 6, -6, -6); };
    const QRect below(120, 100, 30, 16);
    for (const char* output : {"out.gif", "out.mp4"}) {
        std::vector<QImage> frames;
        for (int i = 0; i < 4; ++i) {
            frames.push_back(mediacheck::frameAt(path(output), i).convertToFormat(QImage::Format_ARGB32));
            QCOMPARE(frames.back().size(), screen.size());
            QCOMPARE(qAlpha(frames.back().pixel(2, 2)), 255);
            QVERIFY(looksLike(frames.back(), below, Qt::white));
        }
        QVERIFY(looksLike(frames[0], inner(left), Qt::white));
        QVERIFY(looksLike(frames[0], inner(right), Qt::blue));
        QVERIFY(looksLike(frames[1], inner(left), Qt::red));
        QVERIFY(looksLike(frames[2], inner(left), Qt::white)); // as it was before
        QVERIFY(looksLike(frames[2], inner(right), Qt::green));
        QVERIFY(looksLike(frames[3], inner(right), Qt::black)); // the background, colour 0
        QVERIFY(looksLike(frames[3], inner(middle), Qt::red));
        QVERIFY(looksLike(frames[3], {60, 60, 15, 30}, Qt::blue));
    }
}

void TestGif::transcode_playsAnywhere()
{
    for (const auto& [source, result] : {std::pair(QSize(64, 48), QSize(64, 48)),
                                         {QSize(101, 51), QSize(100, 50)},
                                         {QSize(1, 3), QSize(2, 2)}}) {
        const InCase in_case(source);
        GifWriter gif(source.width(), source.height());
        for (const int delay : {7, 13, 20, 50, 2, 108})
            gif.frame({QPoint(0, 0), source}, delay, 5 + delay);
        GifHandler handler;
        QVERIFY(handler.gifTranscodeToMP4("id", write("in.gif", gif.finished()), path("out.mp4")));

        const QJsonObject video = mediacheck::stream(mediacheck::probe(path("out.mp4")), "video");
        QCOMPARE(video["codec_name"].toString(), QStringLiteral("h264"));
        QCOMPARE(video["codec_tag_string"].toString(), QStringLiteral("avc1"));
        QCOMPARE(video["pix_fmt"].toString(), QStringLiteral("yuv420p"));
        QVERIFY(video["extradata_size"].toInt() > 0);
        QCOMPARE(QSize(video["width"].toInt(), video["height"].toInt()), result);
        QCOMPARE(video["nb_read_frames"].toString(), QStringLiteral("6"));
        QCOMPARE(video["duration"].toString().toDouble(), 2.0);
        QCOMPARE(timing(path("out.mp4")), timing(path("in.gif")));
        QCOMPARE(mediacheck::distinctFrames(path("out.mp4")), 6);
        QCOMPARE(mediacheck::decodeErrors(path("out.mp4")), QString());
    }
}

void TestGif::compress_refusesSource()
{
    const QByteArray sound = GifWriter(40, 30).greys(3, 5).finished();
    const QByteArray unfinished = GifWriter(40, 30).greys(3, 5).unfinished();
    const QRect pixel(0, 0, 1, 1);
    GifWriter bomb(6000, 6000);
    for (int i = 0; i < 1500; ++i)
        bomb.frame(pixel, 5, 1);
    QByteArray endless = GifWriter(40, 30).unfinished() + QByteArray("\x2c\0\0\0\0\x28\0\x1e\0\0\7", 11);
    const QByteArray block = '\xff' + QByteArray(255, '\x24');
    endless += block.repeated((70 << 20) / block.size()) + '\0';
    const QByteArray playlist("#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nother.gif\n");
    for (const auto& [name, content, log] :
         {std::tuple("empty", QByteArray(), "open input failure"),
          {"text", QByteArray("no picture at all"), "open input failure"},
          {"cut in the header", sound.left(11), ""},
          {"cut in the palette", sound.left(100), "truncated input"},
          {"cut in a picture", sound.left(sound.size() - 900), "truncated input"},
          {"no block", unfinished + "\x77;", "truncated input"},
          {"no picture", GifWriter(40, 30).finished(), "truncated input"},
          {"huge", GifWriter(65535, 65535).frame(pixel, 5, 1).finished(), "input too large"},
          {"large", GifWriter(6001, 6000).frame(pixel, 5, 1).finished(), "input too large"},
          {"endless pictures", bomb.finished(), "input too large"},
          {"endless picture", endless + ';', "input too large"},
          {"endless picture, no end", endless, "input too large"},
          {"playlist", playlist, ""}}) {
        const InCase in_case(name);
        const QString input = write("in.gif", content);
        const QString output = write("out.gif", "precious");
        LogCapture capture;
        GifHandler handler;
        QVERIFY2(!handler.compressGifSync("id", input, output, 1, {}), name);
        QVERIFY2(capture.count(log) >= 1, qPrintable(capture.text()));
        QCOMPARE(QFileInfo(output).size(), 8);
        QVERIFY2(!handler.gifTranscodeToMP4("id", input, path("out.mp4")), name);
        QVERIFY(!QFile::exists(path("out.mp4")));
    }
}

void TestGif::compress_failsOnDestination()
{
    const QByteArray gif = GifWriter(40, 30).greys(3, 5).finished();
    const QString input = write("in.gif", gif);
    // The target, what it is a link to, and what is said.
    for (const auto& [name, target, log] : {std::tuple("in.gif", "", "it is the source"),
                                            {"link.gif", "in.gif", "it is the source"},
                                            {"full.gif", "/dev/full", "open file failure"},
                                            {"out", "", "allocate output format failure"},
                                            {"out.xyz", "", "allocate output format failure"},
                                            {"out%d.png", "", "allocate output format failure"},
                                            {"folder.gif", ".", "open file failure"},
                                            {"out.wav", "", "write header failure"},
                                            {"in.gif/out.gif", "", "compress request refused"}}) {
        const InCase in_case(name);
        if (*target != '\0')
            QVERIFY(QFile::link(target, path(name)));
        LogCapture capture;
        GifHandler handler;
        QVERIFY2(!handler.compressGifSync("id", input, path(name), 1, {}), name);
        QVERIFY2(capture.count(log) >= 1, qPrintable(capture.text()));
        QCOMPARE(contentOf(input), gif);
    }
}

void TestGif::compress_cancelledWhileOpening_isNoFailure()
{
    const auto context = GifHandlerContextPtr::create();
    context->srcFilePath = shortGif();
    context->destFilePath = path("out.gif");
    CompressGif compress;
    QSignalSpy results(&compress, &CompressGif::compressResult);
    context->cancelled = true;
    QVERIFY(compress.doCompressGif(context));
    QVERIFY(!QFile::exists(path("out.gif")));

    context->cancelled = false;
    compress.cancelCompress(); // of no run
    QVERIFY(compress.doCompressGif(context));
    QVERIFY(QFileInfo(path("out.gif")).size() > 0);
    QCOMPARE(results.count(), 2);
    context->sync = true;
    QVERIFY(compress.doCompressGif(context));
    QCOMPARE(results.count(), 2);
}

void TestGif::queue_runsInOrder_andRefusesAtOnce()
{
    const QString input = shortGif();
    const QString broken = write("broken.gif", "GIF89a");
    Handler handler;
    handler.compressGif("a", input, path("a.gif"), 1, {});
    handler.compressGif("b", broken, path("b.gif"), 1, {});
    handler.compressGif("c", input, path("c.gif"), 0, {20, 15});
    handler.compressGif("c", input, path("twice.gif"), 1, {});
    handler.compressGif("", input, path("empty.gif"), 1, {});
    handler.compressGif("d", path("missing.gif"), path("d.gif"), 1, {});
    handler.compressGif("e", input, "", 1, {});
    QCOMPARE(handler.results, (Results{{"c", false}, {"", false}, {"d", false}, {"e", false}}));
    handler.results.clear();
    QTRY_COMPARE(handler.results, (Results{{"a", true}, {"b", false}, {"c", true}}));
    QVERIFY(!QFile::exists(path("twice.gif")));
    QCOMPARE(mediacheck::stream(mediacheck::probe(path("c.gif")), "video")["width"].toInt(), 20);

    // The id is free again, and a request that says it is synchronous reports none the less.
    const auto ready = GifHandlerContextPtr::create();
    ready->compressId = "a";
    ready->srcFilePath = input;
    ready->destFilePath = path("ready.mp4");
    ready->transcodeToMP4 = true;
    ready->sync = true;
    handler.results.clear();
    handler.addCompressGif(nullptr);
    handler.addCompressGif(ready);
    QTRY_COMPARE(handler.results, (Results{{"a", true}}));
    QVERIFY(QFileInfo(path("ready.mp4")).size() > 0);

    // Cancelled and given once more, it runs.
    handler.results.clear();
    handler.addCompressGif(ready);
    handler.cancelCompressGif("a");
    QTRY_COMPARE(handler.results, (Results{{"a", false}}));
    handler.addCompressGif(ready);
    QTRY_COMPARE(handler.results, (Results{{"a", false}, {"a", true}}));
}

void TestGif::batch_readsItsMaps()
{
    const QString input = shortGif();
    Handler handler;
    handler.compressBatchGifs({});
    handler.compressBatchGifs(QVariantList());
    QCOMPARE(handler.results.size(), 0);
    handler.compressBatchGifs(QVariantList{
        QVariantMap{{"compressId", "half"},
                    {"srcFilePath", input},
                    {"destFilePath", path("half.gif")},
                    {"compressLevel", 1}},
        QVariantMap{{"compressId", "whole"}, {"srcFilePath", input}, {"destFilePath", path("whole.gif")}},
        QVariantMap{{"compressId", "sized"},
                    {"srcFilePath", input},
                    {"destFilePath", path("sized.gif")},
                    {"targetSize", QSize(80, 60)}},
        QVariantMap{{"srcFilePath", input}}, 7});
    QTRY_COMPARE(handler.results,
                 (Results{{"", false}, {"", false}, {"half", true}, {"whole", true}, {"sized", true}}));
    const auto width = [this](const char* name) {
        return mediacheck::stream(mediacheck::probe(path(name)), "video")["width"].toInt();
    };
    QCOMPARE(width("half.gif"), 20);
    QCOMPARE(width("whole.gif"), 40);
    QCOMPARE(width("sized.gif"), 80);
}

void TestGif::cancel_endsTheHead_andDropsTheWaiting()
{
    const QString input = shortGif();
    const QString endless = longGif();
    Handler handler;
    handler.cancelCompressGif("nothing");
    handler.compressGif("head", endless, path("head.gif"), 1, {});
    handler.compressGif("waiting", input, path("waiting.gif"), 1, {});
    handler.compressGif("also waiting", input, path("also waiting.gif"), 1, {});
    handler.compressGif("next", endless, path("next.gif"), 1, {});
    handler.compressGif("last", input, path("last.gif"), 1, {});
    handler.cancelBatchGifs({"waiting", "also waiting", "unknown"});
    QTRY_VERIFY(isUnderWay(folder->path()));
    handler.cancelCompressGif("head");
    QTRY_COMPARE(handler.results, (Results{{"head", false}}));
    handler.cancelCompressGif("next"); // posted, and perhaps not begun
    QTRY_COMPARE(handler.results, (Results{{"head", false}, {"next", false}, {"last", true}}));
    QCOMPARE(QDir(folder->path()).entryList(QDir::Files | QDir::Hidden),
             (QStringList{"in.gif", "last.gif", "long.gif"}));
}

void TestGif::cancelAll_keepsOldResultsFromNewRequests()
{
    const QString input = shortGif();
    const QString broken = write("broken.gif", "GIF89a");
    const QString endless = longGif();
    Handler handler;
    handler.cancelAllCompressGifs();
    // Cancelled while it runs, before it has begun, and when its result is already on the way.
    handler.compressGif("runs", endless, path("runs.gif"), 1, {});
    handler.compressGif("waits", input, path("waits.gif"), 1, {});
    QTRY_VERIFY(isUnderWay(folder->path()));
    handler.cancelAllCompressGifs();
    handler.compressGif("waits", endless, path("waits.gif"), 1, {});
    handler.cancelAllCompressGifs();
    handler.compressGif("result on its way", input, path("way.gif"), 1, {});
    LogCapture log;
    handler.compressGif("fails", broken, path("fails.gif"), 1, {});
    QTRY_COMPARE(handler.results, (Results{{"result on its way", true}, {"fails", false}}));

    handler.results.clear();
    handler.compressGif("done", broken, path("done.gif"), 1, {});
    // No events are handled here, so the result stays where it is.
    while (log.count("open input failure") < 2)
        QThread::yieldCurrentThread();
    handler.cancelAllCompressGifs();
    handler.compressGif("done", input, path("done.gif"), 1, {});
    QTRY_COMPARE(handler.results, (Results{{"done", true}}));

    // What somebody else tells of the head is not told again of the next one.
    handler.results.clear();
    handler.compressGif("told", broken, path("told.gif"), 1, {});
    handler.compressGif("next", input, path("next.gif"), 1, {});
    handler.slotCompressResult(true);
    QTRY_COMPARE(handler.results, (Results{{"told", true}, {"next", true}}));
}

void TestGif::report_mayChangeTheQueue()
{
    const QString input = shortGif();
    auto handler = std::make_unique<GifHandler>();
    Results results;
    connect(handler.get(), &GifHandler::sigCompressComplete, this, [&](const QString& id, bool ok) {
        results.append({id, ok});
        if (id == "first") {
            handler->cancelAllCompressGifs();
            handler->compressGif("second", input, path("second.gif"), 1, {});
            handler->compressGif("third", input, path("third.gif"), 1, {});
        } else if (id == "third") {
            handler->compressGif("lost", input, path("lost.gif"), 1, {});
            handler.reset();
        }
    });
    handler->compressGif("first", input, path("first.gif"), 1, {});
    handler->compressGif("dropped", input, path("dropped.gif"), 1, {});
    QTRY_VERIFY(!handler);
    QCOMPARE(results, (Results{{"first", true}, {"second", true}, {"third", true}}));
}

void TestGif::destruction_endsWhatRuns()
{
    const QString endless = longGif();
    int reports = 0;
    {
        GifHandler handler;
        connect(&handler, &GifHandler::sigCompressComplete, this, [&](const QString&, bool) { ++reports; });
        handler.compressGif("a", endless, path("a.gif"), 0, {});
        handler.compressGif("b", endless, path("b.gif"), 0, {});
        QTRY_VERIFY(isUnderWay(folder->path()));
    }
    QVERIFY(!QFile::exists(path("b.gif")));
    {
        GifHandler handler;
        handler.compressGif("c", endless, path("c.gif"), 0, {});
    }
    QCOMPARE(reports, 0);
}

void TestGif::cancelSync_endsTheSynchronousRun()
{
    const QString endless = longGif();
    GifHandler handler;
    auto run = std::async(std::launch::async,
                          [&] { return handler.compressGifSync("id", endless, path("out.gif"), 0, {}); });
    QTRY_VERIFY(isUnderWay(folder->path()));
    handler.cancelCompressGifSync("another id");
    QVERIFY(!run.get());

    auto transcoding = std::async(std::launch::async,
                                  [&] { return handler.gifTranscodeToMP4("id", endless, path("out.mp4")); });
    QTRY_VERIFY(isUnderWay(folder->path()));
    handler.cancelAllCompressGifs();
    QVERIFY(!transcoding.get());
    QCOMPARE(QDir(folder->path()).entryList(QDir::Files | QDir::Hidden), QStringList("long.gif"));
}

QTEST_GUILESS_MAIN(TestGif)
#include "test_gif.moc"
