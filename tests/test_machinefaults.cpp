#include "multimedia/base/mediasource.h"
#include "multimedia/base/picturefile.h"
#include "multimedia/gifhandler/gifhandler.h"
#include "multimedia/mediahandler/cwavewriter.h"
#include "multimedia/videocapture/videocapture.h"
#include "multimedia/videoeditor/videoclipthread.h"
#include "tests/support/files.h"
#include "tests/support/gifwriter.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/row.h"

#include <QtTest/QtTest>

#include <cerrno>
#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

using namespace multimedia;

namespace {

/// Lets one call of a kind fail: of those that this thread makes while it lives, the one of this number.
class Fault
{
public:
    enum Kind { Allocation, Write };

    Fault(Kind kind, int number)
    {
        armed = kind;
        left = number;
    }
    ~Fault() { left = 0; }
    Fault(const Fault&) = delete;
    Fault& operator=(const Fault&) = delete;

    /// Whether there were so many calls.
    static bool hasCome() { return left == 0; }
    static bool fails(Kind kind) { return left > 0 && kind == armed && --left == 0; }

private:
    static inline thread_local Kind armed = Allocation;
    static inline thread_local int left = 0;
};

} // namespace

// In the place of the system's, for all libraries.
#pragma GCC visibility push(default)
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): glibc calls them so
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
// NOLINTEND(bugprone-reserved-identifier)

void* malloc(size_t size)
{
    return Fault::fails(Fault::Allocation) ? nullptr : __libc_malloc(size);
}

void* calloc(size_t count, size_t size)
{
    return Fault::fails(Fault::Allocation) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, size_t size)
{
    return Fault::fails(Fault::Allocation) ? nullptr : __libc_realloc(block, size);
}

int posix_memalign(void** block, size_t alignment, size_t size)
{
    *block = Fault::fails(Fault::Allocation) ? nullptr : __libc_memalign(alignment, size);
    return *block ? 0 : ENOMEM;
}

ssize_t write(int descriptor, const void* bytes, size_t count)
{
    static const auto real = reinterpret_cast<decltype(&write)>(dlsym(RTLD_NEXT, "write"));
    // What the test itself tells goes through.
    if (descriptor > STDERR_FILENO && Fault::fails(Fault::Write)) {
        errno = ENOSPC;
        return -1;
    }
    return real(descriptor, bytes, count);
}
}
#pragma GCC visibility pop

class TestMachineFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void source_survives_whenAnyAllocationFails_data();
    void source_survives_whenAnyAllocationFails();
    void results_areWhole_orAsBefore_whenAnyWriteFails_data();
    void results_areWhole_orAsBefore_whenAnyWriteFails();
    void source_tells_whenFileChangesMeanwhile();

private:
    QString path(const QString& name) const { return folder.filePath(name); }

    QTemporaryDir folder;
};

void TestMachineFaults::initTestCase()
{
    av_log_set_level(AV_LOG_QUIET);
    QVERIFY(folder.isValid());
}

void TestMachineFaults::source_survives_whenAnyAllocationFails_data()
{
    columns<QString>("name");
    // No Ogg, no MP3 file and no AAC: there FFmpeg 5.1 itself does not survive it.
    for (const char* name : {"short.mp4", "short.mkv", "short.avi", "short.mpg", "short.flv"})
        row(name, QString(name));
}

/// Each allocation on the way to the first frame.
void TestMachineFaults::source_survives_whenAnyAllocationFails()
{
    QFETCH(QString, name);
    const std::string file = media(name).toStdString();
    const FrameHandle frame = createFrame();
    const LogCapture log;
    int successes = 0;
    int number = 1;
    for (bool has_come = true; has_come; ++number) {
        const Fault fault(Fault::Allocation, number);
        MediaSource source;
        int code = source.open(file);
        if (code >= 0)
            code = source.findStreams();
        if (code >= 0)
            code = source.select(AVMEDIA_TYPE_VIDEO);
        if (code >= 0)
            code = source.openDecoder();
        if (code >= 0)
            code = source.decode(*frame);
        av_frame_unref(frame.get());
        has_come = Fault::hasCome();
        successes += code >= 0;
    }
    qInfo("%d allocations, %d of them needless", number - 2, successes - 1);
    QVERIFY(number > 50);
    QVERIFY(successes >= 1);
}

void TestMachineFaults::results_areWhole_orAsBefore_whenAnyWriteFails_data()
{
    columns<QString>("name");
    for (const char* name : {"picture.png", "first.png", "clip.mp4", "gif.gif", "sound.wav"})
        row(name, QString(name));
}

void TestMachineFaults::results_areWhole_orAsBefore_whenAnyWriteFails()
{
    QFETCH(QString, name);
    const QString target = path(name);
    QImage picture(300, 300, QImage::Format_RGB32);
    picture.fill(Qt::red);
    writeFile(path("source.gif"), GifWriter(40, 30).greys(3, 5).finished());
    const QVariantMap pcm{
        {"pcmData", QByteArray(5000, 'x')},
        {"pcmInfo", QVariantMap{{"sampleFormat", "PCMFormatInt16"}, {"sampleRate", 8000}, {"channels", 1}}}};
    const auto make = [&] {
        switch (name[0].toLatin1()) {
        case 'p':
            return saveImage(picture, target);
        case 'f':
            return VideoCapture::instance()->syncDecodeCapture(media("short.mp4"), target);
        case 'g':
            return GifHandler().compressGifSync("id", path("source.gif"), target, 0, {});
        case 's':
            return CWaveWriter::writeWaveFile(pcm, target);
        default:
            VideoClipThread clip;
            QSignalSpy finished(&clip, &VideoClipThread::clipFinish);
            clip.startClip(media("short.mp4"), target, 0, 5000, true);
            return finished.first().at(1).toInt() == VideoClipThread::kDone;
        }
    };
    const LogCapture log;
    for (int number = 1;; ++number) {
        const InCase in_case(number);
        writeFile(target, "precious");
        bool has_come = true;
        bool is_made = false;
        {
            const Fault fault(Fault::Write, number);
            is_made = make();
            has_come = Fault::hasCome();
        }
        QCOMPARE(is_made, !has_come);
        QCOMPARE(contentOf(target) == "precious", has_come);
        QCOMPARE(QDir(folder.path()).entryList({".*"}, QDir::Files | QDir::Hidden), QStringList());
        if (!has_come) {
            QVERIFY(number > 1);
            break;
        }
    }
}

void TestMachineFaults::source_tells_whenFileChangesMeanwhile()
{
    const PacketHandle packet = createPacket();
    for (const char* change : {"nothing", "grows", "vanishes", "shrinks"}) {
        const InCase in_case(change);
        const QString file = path("changing.mkv");
        QFile::remove(file);
        QVERIFY(QFile::copy(media("long.mkv"), file));
        const qint64 size = QFileInfo(file).size();
        MediaSource source;
        QCOMPARE(source.open(file.toStdString()), 0);
        QVERIFY(source.read(*packet) >= 0);
        if (*change == 'g')
            QVERIFY(QFile::resize(file, size + 100'000));
        else if (*change == 'v')
            QVERIFY(QFile::remove(file));
        else if (*change == 's')
            QVERIFY(QFile::resize(file, size / 2));
        int code = 0;
        int count = 0;
        for (; (code = source.read(*packet)) >= 0; ++count)
            av_packet_unref(packet.get());
        QCOMPARE(code, *change == 's' ? AVERROR(EIO) : AVERROR_EOF);
        QVERIFY(count > 5);
    }
}

QTEST_GUILESS_MAIN(TestMachineFaults)
#include "test_machinefaults.moc"
