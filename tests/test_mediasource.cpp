#include "multimedia/base/mediasource.h"
#include "tests/support/files.h"
#include "tests/support/imagebytes.h"

#include <QtTest/QtTest>

#include <sys/stat.h>

using namespace multimedia;

/// What a file from a stranger may make the library open: itself.
class TestMediaSource : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void open_opensItself_whateverItsName();
    void open_refuses_whatReachesForMore_data();
    void open_refuses_whatReachesForMore();
    void open_refusesAtOnce_whatIsNoRegularFile();
    void open_readsNoSequence_whenNameIsPattern();
    void open_refusesLocalFile_whenAskedForHttp();

private:
    QString path(const QString& name) const { return folder.filePath(name); }
    /// The number of packets that can be read, or FFmpeg's code if the file does not open.
    int packets(const QString& name, SourceOrigin origin = SourceOrigin::LocalFile) const;

    QTemporaryDir folder;
};

int TestMediaSource::packets(const QString& name, SourceOrigin origin) const
{
    MediaSource source;
    SourceOptions options;
    options.origin = origin;
    const int code = source.open(path(name).toStdString(), options);
    if (code < 0)
        return code;
    source.findStreams();
    int count = 0;
    const PacketHandle packet = createPacket();
    for (; source.read(*packet) >= 0; av_packet_unref(packet.get()))
        ++count;
    return count;
}

void TestMediaSource::initTestCase()
{
    av_log_set_level(AV_LOG_QUIET);
    QVERIFY(folder.isValid());
    const QStringList arguments{"-v",       "error", "-f",     "lavfi",          "-i",
                                "sine=d=1", "-f",    "mpegts", path("secret.ts")};
    QCOMPARE(QProcess::execute("ffmpeg", arguments), 0);
    QVERIFY(QFile::copy(path("secret.ts"), path("image0.png")));
    QVERIFY(packets("secret.ts") > 10);
    QCOMPARE(QProcess::execute("mkfifo", {path("pipe.mp3")}), 0);
}

void TestMediaSource::open_opensItself_whateverItsName()
{
    for (const char* utf8 : {"concat:a.ts|b.ts", "-i.ts", "http:x.ts", "a b'\"$(x).ts", "\u97f3.mp4"}) {
        const QString name = QString::fromUtf8(utf8);
        QVERIFY(QFile::copy(path("secret.ts"), path(name)));
        QVERIFY2(packets(name) == packets("secret.ts"), utf8);
    }
}

void TestMediaSource::open_refuses_whatReachesForMore_data()
{
    QTest::addColumn<QByteArray>("content");
    const QByteArray file = path("secret.ts").toUtf8();
    QTest::newRow("playlist of a file")
        << "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\n" + file + "\n#EXT-X-ENDLIST\n";
    QTest::newRow("playlist of a URL") << QByteArray(
        "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nhttp://127.0.0.1:9/x.ts\n#EXT-X-ENDLIST\n");
    QTest::newRow("playlist of itself")
        << QByteArray("#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nmovie.mp4\n#EXT-X-ENDLIST\n");
    QTest::newRow("script beside the file") << QByteArray("ffconcat version 1.0\nfile secret.ts\n");
    QTest::newRow("playlist that waits")
        << QByteArray("#EXTM3U\n#EXT-X-TARGETDURATION:100000\n#EXTINF:100000,\na.ts\n");
    QTest::newRow("manifest that waits") << QByteArray(
        "<?xml version=\"1.0\"?><MPD xmlns=\"urn:mpeg:dash:schema:mpd:2011\" type=\"dynamic\" "
        "minimumUpdatePeriod=\"PT100000S\" availabilityStartTime=\"1970-01-01T00:00:00Z\"><Period "
        "start=\"PT0S\"><AdaptationSet mimeType=\"video/mp4\"><Representation id=\"1\" bandwidth=\"1\">"
        "<SegmentTemplate media=\"a$Number$.m4s\" duration=\"1000\"/></Representation></AdaptationSet>"
        "</Period></MPD>");
    QTest::newRow("subtitles") << QByteArray("1\n00:00:01,000 --> 00:00:02,000\none\n");
    QTest::newRow("picture") << ImageBytes::encoded(QImage(64, 64, QImage::Format_RGB32), "PNG");
    QTest::newRow("text") << QByteArray("a line of text\n").repeated(1000);
    QTest::newRow("session description") << QByteArray(
        "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=x\nc=IN IP4 127.0.0.1\nt=0 0\nm=audio 5004 RTP/AVP 0\n");
}

void TestMediaSource::open_refuses_whatReachesForMore()
{
    QFETCH(QByteArray, content);
    writeFile(path("movie.mp4"), content);
    QVERIFY(packets("movie.mp4") <= 0);
}

void TestMediaSource::open_refusesAtOnce_whatIsNoRegularFile()
{
    for (const char* name : {".", "missing.mp3", "pipe.mp3", "secret.ts|secret.ts", ""})
        QVERIFY2(packets(name) == AVERROR(ENOENT), name);
}

void TestMediaSource::open_readsNoSequence_whenNameIsPattern()
{
    writeFile(path("image%d.png"), "no picture");
    QVERIFY(packets("image%d.png") <= 0);
}

void TestMediaSource::open_refusesLocalFile_whenAskedForHttp()
{
    QVERIFY(packets("secret.ts", SourceOrigin::Http) < 0);
    MediaSource source;
    for (const char* scheme : {"file://", "file:"})
        QVERIFY(source.open(scheme + path("secret.ts").toStdString(), {SourceOrigin::Http}) < 0);
}

QTEST_GUILESS_MAIN(TestMediaSource)
#include "test_mediasource.moc"
