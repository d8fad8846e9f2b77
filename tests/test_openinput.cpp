#include "multimedia/base/openinput.h"
#include "tests/support/files.h"

#include <QtTest/QtTest>

#include <sys/stat.h>

using namespace multimedia;

/// What a file from a stranger may make the library open: itself.
class TestOpenInput : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void openInput_opensItself_whateverItsName();
    void openInput_refuses_whatReachesForMore_data();
    void openInput_refuses_whatReachesForMore();
    void openInput_refusesAtOnce_whatIsNoRegularFile();
    void openInput_readsNoSequence_whenNameIsPattern();
    void openInput_refusesLocalFile_whenAskedForHttp();

private:
    QString path(const QString& name) const { return folder.filePath(name); }
    /// The number of packets that can be read, or FFmpeg's code if the file does not open.
    int packets(const QString& name, InputOrigin origin = InputOrigin::LocalFile) const;

    QTemporaryDir folder;
};

int TestOpenInput::packets(const QString& name, InputOrigin origin) const
{
    InputPtr input;
    InputOptions options;
    options.origin = origin;
    const int code = openInput(input, path(name).toStdString(), options);
    if (code < 0)
        return code;
    avformat_find_stream_info(input.get(), nullptr);
    int count = 0;
    AVPacket* packet = av_packet_alloc();
    while (av_read_frame(input.get(), packet) >= 0) {
        ++count;
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    return count;
}

void TestOpenInput::initTestCase()
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

void TestOpenInput::openInput_opensItself_whateverItsName()
{
    for (const char* utf8 : {"concat:a.ts|b.ts", "-i.ts", "http:x.ts", "a b'\"$(x).ts", "\u97f3.mp4"}) {
        const QString name = QString::fromUtf8(utf8);
        QVERIFY(QFile::copy(path("secret.ts"), path(name)));
        QVERIFY2(packets(name) == packets("secret.ts"), utf8);
    }
}

void TestOpenInput::openInput_refuses_whatReachesForMore_data()
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
    QTest::newRow("text") << QByteArray("a line of text\n").repeated(1000);
    QTest::newRow("session description") << QByteArray(
        "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=x\nc=IN IP4 127.0.0.1\nt=0 0\nm=audio 5004 RTP/AVP 0\n");
}

void TestOpenInput::openInput_refuses_whatReachesForMore()
{
    QFETCH(QByteArray, content);
    writeFile(path("movie.mp4"), content);
    QVERIFY(packets("movie.mp4") <= 0);
}

void TestOpenInput::openInput_refusesAtOnce_whatIsNoRegularFile()
{
    for (const char* name : {".", "missing.mp3", "pipe.mp3", "secret.ts|secret.ts", ""})
        QVERIFY2(packets(name) == AVERROR(ENOENT), name);
}

void TestOpenInput::openInput_readsNoSequence_whenNameIsPattern()
{
    writeFile(path("image%d.png"), "no picture");
    QVERIFY(packets("image%d.png") <= 0);
}

void TestOpenInput::openInput_refusesLocalFile_whenAskedForHttp()
{
    QVERIFY(packets("secret.ts", InputOrigin::Http) < 0);
    InputPtr input;
    QVERIFY(openInput(input, "file://" + path("secret.ts").toStdString(), {InputOrigin::Http}) < 0);
    QVERIFY(openInput(input, "file:" + path("secret.ts").toStdString(), {InputOrigin::Http}) < 0);
}

QTEST_GUILESS_MAIN(TestOpenInput)
#include "test_openinput.moc"
