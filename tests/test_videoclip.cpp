#include "multimedia/videoeditor/videoclipthread.h"
#include "multimedia/videoeditor/videoeditor.h"
#include "tests/support/files.h"
#include "tests/support/filmclock.h"
#include "tests/support/incase.h"
#include "tests/support/mediacheck.h"
#include "tests/support/row.h"
#include "tests/support/underway.h"
#include "tests/support/videofile.h"

#include <QtTest/QtTest>

#include <dlfcn.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <thread>

namespace {

constexpr int kPictures_per_s = 25;
constexpr int kFirstLuma = 16;

/// One request, and the file record that it points at.
class Request
{
public:
    Request(const QString& id, const QString& source, const QString& target, qlonglong start_ms,
            qlonglong end_ms)
        : file(id, source)
        , filter(EditFileFilterPtr::create())
    {
        filter->file = &file;
        filter->savePath = target;
        filter->editInfo = {{QStringLiteral("startTime"), start_ms}, {QStringLiteral("endTime"), end_ms}};
        filter->clipCallback = [this](int stage, int code) {
            stages += stage;
            codes += code;
        };
    }
    Q_DISABLE_COPY(Request)

    BaseFile file;
    EditFileFilterPtr filter;
    QList<int> stages;
    QList<int> codes;
};

/// Clips on this thread; the code that was reported, -1 if there was not exactly one.
int clipSync(const QString& source, const QString& target, qlonglong start_ms, qlonglong end_ms)
{
    VideoClipThread thread;
    QSignalSpy finished(&thread, &VideoClipThread::clipFinish);
    thread.startClip(source, target, start_ms, end_ms, true);
    return finished.size() == 1 ? finished.first().at(1).toInt() : -1;
}

/// Clips stop before they write a packet, while it is closed.
class Gate
{
public:
    static Gate& instance()
    {
        static Gate gate;
        return gate;
    }

    void close() { closed = true; }
    void open()
    {
        closed = false;
        opened.wakeAll();
    }
    /// Whether somebody stands before it.
    bool isWaitedFor() const { return waiting > 0; }
    int passed() const { return count; }
    void pass()
    {
        QMutexLocker lock(&mutex);
        ++waiting;
        while (closed)
            opened.wait(&mutex, 10);
        --waiting;
        ++count;
    }

private:
    std::atomic<bool> closed{false};
    std::atomic<int> waiting{0};
    std::atomic<int> count{0};
    QMutex mutex;
    QWaitCondition opened;
};

} // namespace

extern "C" int av_interleaved_write_frame(AVFormatContext* context, AVPacket* packet)
{
    static const auto write = reinterpret_cast<decltype(&av_interleaved_write_frame)>(
        dlsym(RTLD_NEXT, "av_interleaved_write_frame"));
    Gate::instance().pass();
    return write(context, packet);
}

class TestVideoClip : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { av_log_set_level(AV_LOG_QUIET); }
    void clip_copiesSpan_data();
    void clip_copiesSpan();
    void clip_keepsRotation();
    void clip_reportsFailure_andLeavesNothing();
    void clip_keepsFiles_unlessItSucceeds();
    void clip_ends_withDamagedSource();
    void cancel_takesEffectAtNextPacket_andLeavesNothing();
    void clip_fails_whenSourceIsCut_meanwhile();
    void cancel_isNotLost_beforeThreadRuns();
    void editor_refusesAtOnce();
    void editor_clipsAgain_fromTheReport();
    void editor_clipsTwoFilesAtOnce();
    void editor_cancelsFormerClip_ofSameFile();

private:
    QString target(const QString& name) const { return folder.filePath(name); }
    /// Clips on another thread and does `act` while that stands before a packet; the code that was reported,
    /// -1 if there was not exactly one.
    static int clipHeld(const QString& source, const QString& path,
                        const std::function<void(VideoClipThread&)>& act);

    QTemporaryDir folder;
};

void TestVideoClip::clip_copiesSpan_data()
{
    columns<QString, QString, int, int, int, int, int>("source", "suffix", "start_ms", "end_ms",
                                                       "first_picture", "last_picture", "streams");
    for (const char* kind : {"mp4", "mov", "mkv", "webm", "avi"})
        row(kind, QStringLiteral("base.%1").arg(kind), kind, 3000, 5000, 50, 125, 2);
    // The first picture of the transport stream stands at 1480 ms.
    row("ts", "base.ts", "ts", 5000, 7000, 50, 138, 2);
    row("ts, before the first key frame", "base.ts", "ts", 1000, 4000, 0, 63, 2);
    row("from the beginning", "base.mp4", "mp4", 0, 1000, 0, 25, 2);
    row("from the beginning of mkv", "base.mkv", "mkv", 0, 1000, 0, 25, 2);
    row("at a key frame", "base.mp4", "mp4", 2000, 3000, 50, 75, 2);
    row("to the end", "base.mp4", "mp4", 6500, 60000, 150, 199, 2);
    row("avi of H.264", "h264.avi", "mp4", 3000, 5000, 50, 123, 2); // AVI shows it later by the reordering
    row("avi of MPEG-4", "bframes.avi", "mkv", 3000, 5000, 50, 125, 2);
    row("program stream", "base.mpg", "mkv", 3500, 5500, 50, 125, 2);
    row("no time", "base.mp4", "mp4", 3000, 3000, 50, 75, 2);
    row("long group of pictures", "longgop.mp4", "mp4", 7000, 7500, 0, 187, 1);
    row("variable rate", "vfr.mkv", "mkv", 3000, 5000, 60, 124, 2);
    row("no sound", "silent.mp4", "mp4", 3000, 5000, 50, 125, 1);
    row("two videos", "twovideos.mp4", "mp4", 3000, 5000, 50, 125, 3);
    row("data behind", "data.mov", "mov", 3000, 5000, 50, 125, 2);
    row("data in front", "datafirst.mov", "mov", 3000, 5000, 50, 125, 2);
    row("subtitles, attachment", "rich.mkv", "mkv", 3000, 5500, 50, 137, 3);
    row("mkv to mp4", "base.mkv", "mp4", 3000, 5000, 50, 125, 2);
    row("ts to mp4", "base.ts", "mp4", 5000, 7000, 50, 138, 2);
    row("mp4 to ts", "base.mp4", "ts", 3000, 5000, 50, 125, 2);
    row("mov to mkv", "base.mov", "mkv", 3000, 5000, 50, 125, 2);
}

void TestVideoClip::clip_copiesSpan()
{
    QFETCH(QString, source);
    QFETCH(QString, suffix);
    QFETCH(int, start_ms);
    QFETCH(int, end_ms);
    QFETCH(int, first_picture);
    QFETCH(int, last_picture);
    QFETCH(int, streams);
    const QString path = target(QStringLiteral("span.") + suffix);
    QCOMPARE(clipSync(media(source), path, start_ms, end_ms), int(VideoClipThread::kDone));

    const QJsonObject probed = mediacheck::probe(path);
    QCOMPARE(probed[QStringLiteral("streams")].toArray().size(), streams);
    QCOMPARE(mediacheck::decodeErrors(path), QString());

    const auto lumas = mediacheck::lumas(path);
    QVERIFY(!lumas.empty());
    // A lossy codec may miss by one; reordered pictures behind the end are missing.
    QVERIFY2(std::abs(lumas.front() - kFirstLuma - first_picture) <= 1,
             qPrintable(QString::number(lumas.front())));
    const int behind = lumas.back() - kFirstLuma - last_picture;
    QVERIFY2(behind <= 1 && behind >= -3, qPrintable(QString::number(behind)));

    if (mediacheck::stream(probed, "audio").isEmpty() || end_ms - start_ms < 1500)
        return;
    const auto times = mediacheck::pictureTimes(path);
    QCOMPARE(times.size(), lumas.size());
    const auto beeps = filmclock::beeps(path);
    const auto beep = std::find_if(beeps.begin(), beeps.end(), [](double at_s) { return at_s > 0.25; });
    QVERIFY(beep != beeps.end());
    const auto shown = size_t(std::upper_bound(times.begin(), times.end(), *beep) - times.begin());
    QVERIFY(shown > 0);
    const int picture = lumas[shown - 1] - kFirstLuma;
    const double off_by = std::remainder(double(picture), kPictures_per_s) / kPictures_per_s;
    QVERIFY2(std::abs(off_by) < 0.1, qPrintable(QStringLiteral("%1 s").arg(off_by)));
}

void TestVideoClip::clip_keepsRotation()
{
    // The last two write a tag and no matrix.
    for (const auto& [source, suffix, rotation, red_corner] :
         {std::tuple("rotate90.mp4", "mp4", -90, "top right"),
          {"rotate180.mov", "mov", -180, "bottom right"},
          {"rotate270.mp4", "mp4", 90, "bottom left"},
          {"tag90.mkv", "mp4", -90, "top right"},
          {"rotate90.mp4", "mkv", 0, ""},
          {"tag90.mkv", "mkv", 0, ""}}) {
        const InCase in_case(source, suffix);
        const QString path = target(QString("rotated.") + suffix);
        QCOMPARE(clipSync(media(source), path, 3000, 4000), int(VideoClipThread::kDone));

        const QJsonObject video = mediacheck::stream(mediacheck::probe(path), "video");
        if (rotation == 0) {
            QCOMPARE(video["tags"]["ROTATE"].toString(), QStringLiteral("90"));
            continue;
        }
        QCOMPARE(video[QStringLiteral("side_data_list")][0][QStringLiteral("rotation")].toInt(), rotation);
        const QImage shown = mediacheck::frameAt(path, 0);
        QCOMPARE(shown.size(), rotation == -180 ? QSize(160, 120) : QSize(120, 160));
        QCOMPARE(redCorners(shown), QString(red_corner));
    }
}

void TestVideoClip::clip_reportsFailure_andLeavesNothing()
{
    for (const auto& [source, target_name] : {std::pair("base.mp4", "clip.nothing"),
                                              {"base.mp4", "clip"},
                                              {"base.mp4", "missing/clip.mp4"},
                                              {"base.mp4", "clip.m3u8"}, // several files
                                              {"rich.mkv", "clip.mp4"},  // a codec that the target lacks
                                              {"sound.m4a", "clip.mp4"},
                                              {"missing.mp4", "clip.mp4"},
                                              {"empty.mp4", "clip.mp4"},
                                              {"text.mp4", "clip.mp4"},
                                              {"endless.h264", "clip.mp4"}, // nothing to seek by
                                              {"headonly.mp4", "clip.mp4"}}) {
        const InCase in_case(source, target_name);
        QTemporaryDir empty_folder;
        const int code = clipSync(media(source), empty_folder.filePath(target_name), 0, 5000);
        QVERIFY2(code == VideoClipThread::kFailed, source);
        QVERIFY2(QDir(empty_folder.path()).isEmpty(), target_name);
    }
}

void TestVideoClip::clip_keepsFiles_unlessItSucceeds()
{
    const QString source = target("own.mp4");
    QVERIFY(QFile::copy(media("base.mp4"), source));
    const QString link = target("link.mp4");
    QVERIFY(QFile::link(source, link));
    for (const QString& same : {source, link}) {
        QCOMPARE(clipSync(source, same, 0, 5000), int(VideoClipThread::kFailed));
        QCOMPARE(QFileInfo(source).size(), QFileInfo(media("base.mp4")).size());
        QVERIFY(QFile::exists(same));
    }
    // The last one fails with its target begun.
    for (const char* bad : {"text.mp4", "rich.mkv"}) {
        QCOMPARE(clipSync(media(QString::fromLatin1(bad)), link, 0, 5000), int(VideoClipThread::kFailed));
        QCOMPARE(QFileInfo(source).size(), QFileInfo(media("base.mp4")).size());
    }
    QVERIFY(QFile::setPermissions(source, QFile::ReadOwner | QFile::WriteOwner));
    QCOMPARE(clipSync(media("silent.mp4"), link, 0, 5000), int(VideoClipThread::kDone));
    QVERIFY(QFileInfo(link).isSymLink());
    QVERIFY(!(QFileInfo(source).permissions() & QFile::ReadOther));
    QVERIFY(mediacheck::stream(mediacheck::probe(source), "audio").isEmpty());
    QVERIFY(QDir(folder.path()).entryList({QStringLiteral(".*")}, QDir::Files | QDir::Hidden).isEmpty());
}

/// What can be read of it is there, and can be played.
void TestVideoClip::clip_ends_withDamagedSource()
{
    const QString path = target("damaged.mkv");
    for (const char* source :
         {"truncated.mp4", "truncated.mkv", "corrupt.mp4", "corrupt.ts", "cover.mp4", "opengop.mp4"}) {
        QVERIFY2(clipSync(media(source), path, 3000, 8000) == VideoClipThread::kDone, source);
        QVERIFY2(mediacheck::lumas(path).size() > 25, source);
    }
}

int TestVideoClip::clipHeld(const QString& source, const QString& path,
                            const std::function<void(VideoClipThread&)>& act)
{
    Gate::instance().close();
    VideoClipThread thread;
    QSignalSpy finished(&thread, &VideoClipThread::clipFinish);
    thread.startClip(source, path, 0, 5000, false);
    const bool is_held = QTest::qWaitFor([] { return Gate::instance().isWaitedFor(); });
    act(thread);
    Gate::instance().open();
    thread.wait();
    const bool is_told = QTest::qWaitFor([&] { return !finished.isEmpty(); });
    return is_held && is_told && finished.size() == 1 ? finished.first().at(1).toInt() : -1;
}

void TestVideoClip::cancel_takesEffectAtNextPacket_andLeavesNothing()
{
    const QString path = target("slow.mkv");
    int written = 0;
    const auto cancel = [&](VideoClipThread& thread) {
        QVERIFY(isUnderWay(folder.path()));
        written = Gate::instance().passed();
        thread.cancelClip();
    };
    QCOMPARE(clipHeld(media("heavy.mkv"), path, cancel), int(VideoClipThread::kCancelled));
    QCOMPARE(Gate::instance().passed(), written + 1);
    QVERIFY(!isUnderWay(folder.path()));
    QVERIFY(!QFile::exists(path));
}

void TestVideoClip::clip_fails_whenSourceIsCut_meanwhile()
{
    const QString source = target("cut.mkv");
    QVERIFY(QFile::copy(media("heavy.mkv"), source));
    const QString path = target("ofcut.mkv");
    const auto cut = [&](VideoClipThread&) { QVERIFY(QFile::resize(source, 2'000'000)); };
    QCOMPARE(clipHeld(source, path, cut), int(VideoClipThread::kFailed));
    QVERIFY(!QFile::exists(path));
}

void TestVideoClip::cancel_isNotLost_beforeThreadRuns()
{
    for (int i = 0; i < 20; ++i) {
        const QString path = target("early.mp4");
        VideoClipThread thread;
        QSignalSpy finished(&thread, &VideoClipThread::clipFinish);
        thread.startClip(media("base.mp4"), path, 0, 8000, false);
        thread.cancelClip();
        QVERIFY(thread.wait());
        QTRY_COMPARE(finished.size(), 1);
        QCOMPARE(finished.first().at(1).toInt(), int(VideoClipThread::kCancelled));
        QVERIFY(!QFile::exists(path));
    }
}

void TestVideoClip::editor_refusesAtOnce()
{
    const QString path = target("refused.mp4");
    const QString good = media("base.mp4");
    for (const auto& [source, target, start_ms, end_ms] : {std::tuple(good, path, -1, 1000),
                                                           {good, path, 1001, 1000},
                                                           {good, QString(), 0, 1000},
                                                           {media("missing.mp4"), path, 0, 1000},
                                                           {QString(), path, 0, 1000}}) {
        const InCase in_case(source, target, start_ms, end_ms);
        Request request("refused", source, target, start_ms, end_ms);
        const int reports = source.isEmpty() ? 2 : 1;
        VideoEditor::instance()->clip(request.filter);
        QCOMPARE(request.codes, QList<int>(QVector<int>(reports, VideoClipThread::kFailed).toList()));
        QCOMPARE(request.stages, QList<int>(QVector<int>(reports, 5).toList()));
        QVERIFY(!QFile::exists(path));

        VideoClipThread thread;
        QSignalSpy finished(&thread, &VideoClipThread::clipFinish);
        QVERIFY(!thread.startClip(request.filter, false));
        QCOMPARE(finished.size(), 1);
        QVERIFY(!thread.isRunning());
    }
}

void TestVideoClip::editor_clipsAgain_fromTheReport()
{
    // Refused at once, or when the source is opened.
    for (const char* source : {"missing.mp4", "empty.mp4"}) {
        const InCase in_case(source);
        Request bad("again", media(source), target("bad.mp4"), 0, 8000);
        Request good("again", media("base.mp4"), target("good.mp4"), 0, 8000);
        bad.filter->clipCallback = [&](int, int) { VideoEditor::instance()->clip(good.filter); };
        VideoEditor::instance()->clip(bad.filter);
        QTRY_COMPARE(good.codes, QList<int>{VideoClipThread::kDone});
    }
}

void TestVideoClip::editor_clipsTwoFilesAtOnce()
{
    const QString source = QUrl::fromLocalFile(media("base.mp4")).toString();
    Request first("first", source, target("first.mp4"), 3000, 5000);
    Request second("second", media("base.mkv"), target("second.mkv"), 0, 8000);
    VideoEditor* editor = VideoEditor::instance();
    QVERIFY(!editor->cancel("first"));
    editor->clip(first.filter);
    editor->clip(second.filter);
    QTRY_VERIFY(!first.codes.isEmpty() && !second.codes.isEmpty());
    for (const Request* request : {&first, &second}) {
        QCOMPARE(request->codes, QList<int>{VideoClipThread::kDone});
        QCOMPARE(request->stages, QList<int>{5});
        QCOMPARE(mediacheck::decodeErrors(request->filter->savePath), QString());
        QVERIFY(!editor->cancel(request->file.fileId()));
    }
    QCOMPARE(editor->state(), VideoEditor::VideoEditor_State_Idle);
}

void TestVideoClip::editor_cancelsFormerClip_ofSameFile()
{
    const QString id = QStringLiteral("same");
    const QString slow_path = target("slowedit.mkv");
    Request slow(id, media("heavy.mkv"), slow_path, 0, 5000);
    Request fast(id, media("base.mp4"), target("fast.mp4"), 0, 5000);
    VideoEditor* editor = VideoEditor::instance();
    Gate& gate = Gate::instance();
    gate.close();
    editor->clip(slow.filter);
    QTRY_VERIFY(gate.isWaitedFor());
    std::thread opener([&] {
        QThread::msleep(50);
        gate.open();
    });
    editor->clip(fast.filter); // ends the former one, and waits for it
    opener.join();
    QTRY_VERIFY(!slow.codes.isEmpty() && !fast.codes.isEmpty());
    QCOMPARE(slow.codes, QList<int>{VideoClipThread::kCancelled});
    QCOMPARE(fast.codes, QList<int>{VideoClipThread::kDone});
    QVERIFY(!QFile::exists(slow_path));
    QVERIFY(QFile::exists(fast.filter->savePath));
    QVERIFY(!editor->cancel(id));
}

QTEST_GUILESS_MAIN(TestVideoClip)
#include "test_videoclip.moc"
