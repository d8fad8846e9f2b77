#include "multimedia/base/warning.h"
#include "multimedia/videoprovider/toolcommand.h"
#include "multimedia/videoprovider/videoprovider.h"
#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/mediacheck.h"

#include <QtTest/QtTest>

#include <signal.h>

namespace {

QString tool(const QString& name)
{
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + name;
}

/// Puts a shell script, or nothing, in the place of `ffmpeg` while it lives.
class FakeTool
{
public:
    explicit FakeTool(const QByteArray& script = {})
    {
        QFile::rename(tool("ffmpeg"), tool("ffmpeg.kept"));
        if (script.isEmpty())
            return;
        writeFile(tool("ffmpeg"), "#!/bin/sh\n" + script);
        QFile::setPermissions(tool("ffmpeg"), QFile::ReadOwner | QFile::ExeOwner);
    }
    ~FakeTool() { restore(); }
    /// Also after a run that ended too early to do it.
    static void restore()
    {
        if (!QFileInfo(tool("ffmpeg.kept")).isSymLink())
            return;
        QFile::remove(tool("ffmpeg"));
        QFile::rename(tool("ffmpeg.kept"), tool("ffmpeg"));
    }
};

void killChildren()
{
    const auto path = QStringLiteral("/proc/self/task/%1/children").arg(QCoreApplication::applicationPid());
    for (const QByteArray& pid : contentOf(path).split(' ')) {
        if (pid.toInt() > 0)
            kill(pid.toInt(), SIGKILL);
    }
}

} // namespace

class TestVideoProvider : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { reports.clear(); }
    void convert_tellsProgress_andMakesMp4();
    void queue_goesOn_whenOneIsMissing();
    void cancel_endsTheHead_andGoesOn();
    void report_mayAddTheNext();
    void convert_takesPathAsOne();
    void queue_stands_whenToolIsAbsent();
    void queue_ends_whenToolHangsOrFloods();
    void standardErrorOf_isBounded();
    void firstFrame_isWritten();
    void rotation_isRead();
    void gifAndMp4_areMade_withTrailingOptions();
    void gif_fails();

private:
    QString path(const QString& name) const { return folder.filePath(name); }
    /// The codes told for `filter` so far, the early one first.
    QList<int> codes(const ConvertFileFilterPtr& filter) const;
    ConvertFileFilterPtr add(const QString& source);

    QTemporaryDir folder;
    VideoProvider* provider = nullptr;
    QList<QPair<ConvertFileFilterPtr, int>> reports;
};

QList<int> TestVideoProvider::codes(const ConvertFileFilterPtr& filter) const
{
    QList<int> result;
    for (const auto& report : reports) {
        if (report.first == filter)
            result += report.second;
    }
    return result;
}

ConvertFileFilterPtr TestVideoProvider::add(const QString& source)
{
    auto filter = ConvertFileFilterPtr::create();
    provider->addConvertVideo(source, filter);
    return filter;
}

void TestVideoProvider::initTestCase()
{
    QVERIFY(folder.isValid());
    QVERIFY(qputenv("TMPDIR", folder.path().toUtf8()));
    FakeTool::restore();
    QVERIFY(QFile::exists(tool("ffmpeg")) && QFile::exists(tool("ffprobe")));
    MultimediaCategoryLogging().setEnabled(QtDebugMsg, true);
    provider = VideoProvider::instance();
    connect(provider, &VideoProvider::videoConvertComplete, this,
            [this](const ConvertFileFilterPtr& filter, int code) {
                reports.append({filter, code});
            });
}

/// Comes first: the total stays that of the first file for as long as the process lives.
void TestVideoProvider::convert_tellsProgress_andMakesMp4()
{
    QList<QPair<int, int>> progress;
    connect(provider, &VideoProvider::convertProgressChanged, this,
            [&progress](const ConvertFileFilterPtr&, int current, int total) {
                progress.append({current, total});
            });
    // A chunk of eight characters is no duration.
    FakeTool slow("case \"$*\" in *info*) printf 12345678 >&2; sleep 0.3;; esac; exec \"$0.kept\" \"$@\"");
    provider->cancelConvertVideo(); // nothing to cancel
    const auto filter = add(QUrl::fromLocalFile(media("long.mp4")).toString());
    QCOMPARE(codes(filter), QList<int>{2}); // a URL is no path yet
    QTRY_COMPARE_WITH_TIMEOUT(codes(filter), (QList<int>{2, 0}), 60000);
    QCOMPARE(filter->outputFile, path("long.mp4"));
    const QJsonObject video = mediacheck::stream(mediacheck::probe(filter->outputFile), "video");
    QCOMPARE(video["codec_name"].toString(), QStringLiteral("h264"));
    QCOMPARE(video["nb_read_frames"].toString(), QStringLiteral("75"));
    QCOMPARE(mediacheck::decodeErrors(filter->outputFile), QString());
    QVERIFY(!QImage(path("long.jpg")).isNull());

    QVERIFY(progress.size() >= 2);
    QCOMPARE(progress.first(), qMakePair(0, 3));
    for (int i = 1; i < progress.size(); ++i) {
        QVERIFY(progress[i].first >= progress[i - 1].first && progress[i].first <= 3);
        QCOMPARE(progress[i].second, 3);
    }
    progress.clear();
    const auto second = add(media("short.mp4"));
    QTRY_COMPARE(codes(second), (QList<int>{0, 0}));
    QCOMPARE(progress.isEmpty() ? 3 : progress.first().second, 3);
    provider->disconnect(SIGNAL(convertProgressChanged(ConvertFileFilterPtr, int, int)));
}

void TestVideoProvider::queue_goesOn_whenOneIsMissing()
{
    const auto first = add(media("short.mp4"));
    const auto missing = add(path("missing.mp4"));
    const auto last = add(media("short.mp4"));
    QCOMPARE(codes(first) + codes(missing) + codes(last), (QList<int>{0, 2, 0}));
    QCOMPARE(first->outputFile, media("short.mp4"));
    QTRY_COMPARE(codes(last), (QList<int>{0, 0}));
    QCOMPARE(codes(first), (QList<int>{0, 0}));
    QCOMPARE(codes(missing), (QList<int>{2, 2}));
    QCOMPARE(missing->outputFile, QString());
    QCOMPARE(reports.last().first, last);
    QVERIFY(first->outputFile != last->outputFile);
    QCOMPARE(mediacheck::decodeErrors(first->outputFile), QString());
    QCOMPARE(mediacheck::decodeErrors(last->outputFile), QString());
}

void TestVideoProvider::cancel_endsTheHead_andGoesOn()
{
    FakeTool hanging("case \"$*\" in *long.mp4*-y*) exec sleep 1000;; esac; exec \"$0.kept\" \"$@\"");
    const auto head = add(media("long.mp4"));
    const auto next = add(media("short.mp4"));
    provider->cancelConvertVideo();
    QTRY_COMPARE(codes(next), (QList<int>{0, 0}));
    QCOMPARE(codes(head), (QList<int>{0, 1}));
    QCOMPARE(head->outputFile, media("long.mp4"));
}

void TestVideoProvider::report_mayAddTheNext()
{
    ConvertFileFilterPtr second;
    const auto first = add(media("short.mp4"));
    QObject context;
    connect(provider, &VideoProvider::videoConvertComplete, &context,
            [&](const ConvertFileFilterPtr& filter, int) {
                if (filter == first && !second)
                    second = add(media("turned90.mp4"));
            });
    QTRY_VERIFY(second && codes(second) == (QList<int>{0, 0}));
    QCOMPARE(codes(first), (QList<int>{0, 0}));
    QVERIFY(second->outputFile.contains("turned90"));
}

void TestVideoProvider::convert_takesPathAsOne()
{
    QDir(folder.path()).mkpath("odd");
    // Relative, so that the tool's argument begins as the name does.
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(path("odd")));
    for (const char* utf8 : {"two words", "a\"quote\"", "\"", "-y", "-i \"x\" -y", "%1 %2 %3", "concat:a|b",
                             "$(touch x);'`", "\u97f3\u58f0", "line\nbreak", "trailing ", "%d", "100%"}) {
        const QString name = QString::fromUtf8(utf8);
        const InCase in_case(name);
        QVERIFY(QFile::copy(media("turned90.mp4"), name + ".mp4"));
        const QStringList files = QDir().entryList(QDir::Files);

        const auto filter = add(name + ".mp4");
        QTRY_COMPARE(codes(filter), (QList<int>{0, 0}));
        QCOMPARE(QFileInfo(filter->outputFile).path(), folder.path());
        QVERIFY(QFileInfo(filter->outputFile).completeBaseName().startsWith(name));
        QCOMPARE(provider->readVideoRotation(name + ".mp4"), 90);
        QVERIFY(!QImage(provider->fetchVideoFirstFrame(name + ".mp4")).isNull());
        QSignalSpy gif(provider, &VideoProvider::gifConvertComplete);
        provider->mp4ToGif(name + ".mp4", "id");
        QVERIFY(gif.wait());
        QCOMPARE(gif[0][0].toString(), path(name + ".gif"));
        QVERIFY(QFile::exists(path(name + ".gif")));

        QCOMPARE(QDir().entryList(QDir::Files), files);
        QVERIFY(QFile::remove(name + ".mp4"));
    }
    QVERIFY(QDir::setCurrent(before));
}

void TestVideoProvider::queue_stands_whenToolIsAbsent()
{
    QSignalSpy gif(provider, &VideoProvider::gifConvertComplete);
    LogCapture log;
    ConvertFileFilterPtr filter;
    {
        FakeTool absent;
        filter = add(media("short.mp4"));
        provider->mp4ToGif(media("short.mp4"), "absent");
        QTRY_COMPARE(log.count("could not start"), 2);
        provider->fetchVideoFirstFrame(media("short.mp4"));
        QCOMPARE(log.count("could not start"), 3);
    }
    QCOMPARE(codes(filter), QList<int>{0});
    QCOMPARE(gif.count(), 0);
    provider->convertVideoToMp4();
    QTRY_COMPARE(codes(filter), (QList<int>{0, 0}));
}

void TestVideoProvider::queue_ends_whenToolHangsOrFloods()
{
    {
        // As a file's tags may have it: all that comes before a time, over and over, and no time.
        FakeTool flooding(
            "case \"$*\" in *-y*info*|*info*-y*) "
            "yes \"$(yes frame=fps=q=size= | head -n 900) time=:.\" | head -c 30000000 >&2;; esac");
        const auto filter = add(media("short.mp4"));
        QTRY_COMPARE_WITH_TIMEOUT(codes(filter), (QList<int>{0, 2}), 30000);
        QCOMPARE(filter->outputFile, QString());
    }
    FakeTool hanging("case \"$*\" in *info*) exec sleep 1000;; esac");
    const auto filter = add(media("short.mp4"));
    QSignalSpy gif(provider, &VideoProvider::gifConvertComplete);
    provider->mp4ToGif(media("long.mp4"), "hanging");
    provider->cancelConvertVideo();
    QTRY_COMPARE(codes(filter), (QList<int>{0, 1}));
    QCOMPARE(gif.count(), 0);
    killChildren();
    QTRY_COMPARE(gif.count(), 1);
    QCOMPARE(gif[0], (QList<QVariant>{"", "hanging"}));
}

void TestVideoProvider::standardErrorOf_isBounded()
{
    FakeTool flooding("exec yes err >&2");
    QElapsedTimer timer;
    timer.start();
    const QString text = toolcommand::standardErrorOf(toolcommand::quoted(tool("ffmpeg")), 500);
    QVERIFY(timer.elapsed() >= 500);
    QCOMPARE(text.size(), 1 << 20);
    FakeTool::restore();
    FakeTool hanging("echo before >&2; exec sleep 1000");
    QCOMPARE(toolcommand::standardErrorOf(toolcommand::quoted(tool("ffmpeg")), 500),
             QStringLiteral("before\n"));
}

void TestVideoProvider::firstFrame_isWritten()
{
    const QString first = provider->fetchVideoFirstFrame(QUrl::fromLocalFile(media("moving.gif")).toString());
    QCOMPARE(first, folder.path() + "//moving.jpg");
    QCOMPARE(QImage(first).size(), QSize(160, 120));
    writeFile(path("broken.mp4"), "no video");
    for (const QString& bad : {path("broken.mp4"), path("missing.mp4"), QString()})
        QCOMPARE(provider->fetchVideoFirstFrame(bad), QString());
}

void TestVideoProvider::rotation_isRead()
{
    const QString url = QUrl::fromLocalFile(media("turned90.mp4")).toString();
    const QMap<QString, int> rotations = {{media("short.mp4"), 0},
                                          {media("turned90.mp4"), 90},
                                          {media("turned180.mp4"), -180},
                                          {media("turned270.mp4"), -90},
                                          {url, 90},
                                          {path("missing.mp4"), 0},
                                          {QString(), 0}};
    for (auto entry = rotations.begin(); entry != rotations.end(); ++entry)
        QVERIFY2(provider->readVideoRotation(entry.key()) == entry.value(), qPrintable(entry.key()));
}

void TestVideoProvider::gifAndMp4_areMade_withTrailingOptions()
{
    LogCapture log;
    QSignalSpy gif(provider, &VideoProvider::gifConvertComplete);
    QSignalSpy mp4(provider, &VideoProvider::mp4ConvertComplete);
    for (const char* name : {"moving.gif", "long.gif", "turned90.gif", "moving.mp4"})
        QFile::remove(path(name));
    provider->mp4ToGif(media("turned90.mp4"), "default");
    provider->mp4ToGif(media("long.mp4"), "sized", 100, 50, 5);
    provider->gifToMp4("file:" + media("moving.gif"), "back", 100, 50);
    QTRY_COMPARE_WITH_TIMEOUT(gif.count(), 2, 30000);
    QTRY_COMPARE(mp4.count(), 1);
    QCOMPARE(mp4[0], (QList<QVariant>{path("moving.mp4"), "back"}));

    const auto ran = [&](const QString& source, const QString& rate, const QString& rest) {
        const QString command = "cmd: %1 -hide_banner -v info -i \"%2\" -r %3 %4";
        return log.text().contains(command.arg(tool("ffmpeg"), source, rate, rest));
    };
    QVERIFY(ran(media("turned90.mp4"), "12", path("turned90.gif") + "\n"));
    QVERIFY(ran(media("long.mp4"), "5", path("long.gif") + " -s 100x50\n"));
    QVERIFY(ran("file:" + media("moving.gif"), "30", path("moving.mp4") + " -s 100x50 -c:v h264_qsv"));
    // What stands behind the output does not apply to it.
    const QJsonObject sized = mediacheck::stream(mediacheck::probe(path("long.gif")), "video");
    QCOMPARE(sized["width"].toInt(), 1280);
    QCOMPARE(sized["r_frame_rate"].toString(), QStringLiteral("5/1"));
    const QJsonObject back = mediacheck::stream(mediacheck::probe(path("moving.mp4")), "video");
    QCOMPARE(back["codec_name"].toString(), QStringLiteral("h264"));
    QCOMPARE(back["width"].toInt(), 160);
    QCOMPARE(back["r_frame_rate"].toString(), QStringLiteral("30/1"));
}

void TestVideoProvider::gif_fails()
{
    QSignalSpy gif(provider, &VideoProvider::gifConvertComplete);
    provider->mp4ToGif(path("missing.mp4"), "missing");
    QTRY_COMPARE(gif.count(), 1);
    QCOMPARE(gif[0], (QList<QVariant>{"", "missing"}));

    // The tool asks before it overwrites, and takes no answer for a no.
    writeFile(path("short.gif"), "precious");
    provider->mp4ToGif(media("short.mp4"), "taken");
    QTRY_COMPARE(gif.count(), 2);
    QCOMPARE(gif[1], (QList<QVariant>{"", "taken"}));
    QCOMPARE(contentOf(path("short.gif")), QByteArray("precious"));
}

QTEST_GUILESS_MAIN(TestVideoProvider)
#include "test_videoprovider.moc"
