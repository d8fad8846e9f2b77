#include "multimedia/audioplayer/audioplayer.h"
#include "multimedia/base/scale.h"
#include "multimedia/gifhandler/gifhandler.h"
#include "multimedia/imageedit/imageeditprovider.h"
#include "multimedia/mediahandler/cmediadecode.h"
#include "multimedia/mediahandler/cwavewriter.h"
#include "multimedia/speechrecognizer_linux/speechaudio.h"
#include "multimedia/videocapture/videocapture.h"
#include "multimedia/videoeditor/videoclipthread.h"
#include "multimedia/videoeditor/videoeditor.h"
#include "quillon/util.h"
#include "tests/support/files.h"
#include "tests/support/fulldisk.h"
#include "tests/support/gifwriter.h"
#include "tests/support/imagebytes.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/peakmemory.h"
#include "tests/support/row.h"

#include <QtTest/QtTest>

#include <sys/stat.h>

using ImageEdit::ImageEditProvider;

namespace {

/// More than any opener needs, and less than what a hostile file asks for.
constexpr qint64 kMostMegabytes = 200;
constexpr std::chrono::seconds kLongest(30);

QByteArray bigEndian(quint32 value)
{
    QByteArray bytes(4, '\0');
    qToBigEndian(value, bytes.data());
    return bytes;
}

/// A tag of ID3v2.3 with these frames, of up to 256 MB.
QByteArray tagOf(const QByteArray& frames)
{
    const auto size = quint32(frames.size());
    QByteArray tag("ID3\3\0\0", 6);
    for (int shift = 21; shift >= 0; shift -= 7)
        tag += char(size >> shift & 0x7f);
    return tag + frames;
}

QByteArray tagFrame(const char* id, const QByteArray& content)
{
    return id + bigEndian(quint32(content.size())) + QByteArray(2, '\0') + content;
}

QByteArray coverFrame(const QByteArray& picture)
{
    return tagFrame("APIC", QByteArray("\0image/png\0\3\0", 13) + picture);
}

QByteArray svgShowing(const QString& path)
{
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" xmlns:xlink=\"http://www.w3.org/1999/xlink\" "
           "width=\"64\" "
           "height=\"48\"><image width=\"64\" height=\"48\" xlink:href=\"" +
           path.toUtf8() + "\"/></svg>";
}

} // namespace

/// What strangers have sent, and each opener.
class TestStrangers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void openers_endSoon_withLittleMemory_data();
    void openers_endSoon_withLittleMemory();
    void scale_fails_withoutFormat();
    void pictures_showNothingElse();
    void pictures_areNotWaitedFor();
    void crop_ofHugePhoto_needsNoMore();
    void firstFrame_isMade_whenAspectIsNone();
    void tag_isRefused_ofTooManyEntries();
    void results_areWhole_orAsBefore();

private:
    QString path(const QString& name) const { return folder.filePath(name); }
    QString made(const QString& name, const QByteArray& content) const
    {
        writeFile(path(name), content);
        return path(name);
    }
    QByteArray sound() const { return contentOf(media("plain.mp3")); }

    QTemporaryDir folder;
};

void TestStrangers::initTestCase()
{
    av_log_set_level(AV_LOG_QUIET);
    QVERIFY(folder.isValid());
}

void TestStrangers::openers_endSoon_withLittleMemory_data()
{
    columns<QString, QByteArray>("name", "content");
    const QByteArray film = contentOf(media("front.mp4"));
    row("cut behind the index", "cut.mp4", film.left(film.indexOf("mdat") + 44));
    const QByteArray parts = contentOf(media("parts.mp4"));
    row("first part only", "init.mp4", parts.left(parts.indexOf("moof") - 4));
    row("encrypted", "secret.webm", contentOf(media("encrypted.webm")));
    row("text that calls itself a picture", "x.jpg", QByteArray("hello\n"));
    row("begin of a PNG", "x.png", QByteArray("\x89PNG\r\n\x1a\n"));
    row("begin of a JPEG", "x.jpg", QByteArray("\xff\xd8\xff"));
    row("playlist that waits", "film.mp4",
        QByteArray("#EXTM3U\n#EXT-X-TARGETDURATION:100000\n#EXTINF:100000,\na.ts\n"));
    row("huge screen", "huge.gif", GifWriter(16000, 16000).frame({0, 0, 1, 1}, 5, 1).finished());
    row("huge film", "huge.mov", contentOf(media("huge.mov")));
    row("huge film whose stream turns up late", "huge.flv", contentOf(media("huge.flv")));
    row("huge cover", "huge.mp3",
        tagOf(coverFrame(GifWriter(16000, 16000).frame({0, 0, 1, 1}, 5, 1).finished())) + sound());
    QByteArray pictures = GifWriter(1, 1).unfinished();
    const int screen = pictures.size();
    pictures = GifWriter(1, 1).frame({0, 0, 1, 1}, 5, 1).unfinished();
    row("a million pictures", "many.gif", pictures + pictures.mid(screen).repeated(1'000'000) + ';');
}

void TestStrangers::openers_endSoon_withLittleMemory()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, content);
    const LogCapture log;
    const QString file = made(name, content);
    QElapsedTimer timer;
    timer.start();
    const PeakMemory memory;

    long long duration = 0;
    QString format;
    QString image;
    QSize size;
    VideoCapture* capture = VideoCapture::instance();
    capture->syncDecodeFormat(file, duration, format, size);
    capture->syncDecodeFormat(file, duration, format, image, size);
    QFile::remove(image);
    capture->syncDecodeCapture(file, path("frame.png"));
    capture->videoSourceSize(file);
    VideoEditor::instance()->preview(file);
    VideoEditor::instance()->clearPreview();
    VideoClipThread clip;
    clip.startClip(file, path("clip.mkv"), 0, 100, true);
    AudioPlayer::audioFormat(file, duration, format, image);
    AudioPlayer::getAlbumInfo(file);
    CMediaDecode().decodeAudio(file);
    std::atomic<bool> cancelled{false};
    speechRecognize::FileAudio speech(cancelled);
    speech.open(file.toStdString());
    QVERIFY(QFile::remove(file));

    QVERIFY2(memory.megabytes() < kMostMegabytes, qPrintable(QString::number(memory.megabytes())));
    QVERIFY2(!timer.hasExpired(std::chrono::milliseconds(kLongest).count()),
             qPrintable(QString::number(timer.elapsed())));
}

void TestStrangers::scale_fails_withoutFormat()
{
    multimedia::Scale scale({});
    multimedia::FrameHandle frame = multimedia::createFrame();
    frame->width = frame->height = 16;
    frame->format = AV_PIX_FMT_YUV420P;
    QVERIFY(!scale.open(frame.get()));
    frame->format = AV_PIX_FMT_NONE;
    multimedia::Scale to_rgb({{}, {16, 16}, AV_PIX_FMT_RGB24});
    QVERIFY(!to_rgb.open(frame.get()));
}

void TestStrangers::pictures_showNothingElse()
{
    QImage secret(64, 48, QImage::Format_RGB32);
    secret.fill(Qt::red);
    QVERIFY(secret.save(path("secret.png")));
    const QByteArray svg = svgShowing(path("secret.png"));
    ImageEditProvider* editor = ImageEditProvider::instance();
    const QVariantMap whole{{"x1", 0}, {"y1", 0}, {"x2", 1}, {"y2", 1}};
    for (const char* name : {"received.svg", "received.png"}) {
        const InCase in_case(name);
        const QString file = made(name, svg);
        QCOMPARE(editor->readThumbImage(file), file);
        QCOMPARE(editor->readThumbBytes(file), QString());
        QByteArray bytes;
        QVERIFY(!Util::scaleThumbBytes(file, 32, bytes));
        QString target = path("edited.png");
        QVERIFY(!editor->doEditSync(file, target, whole));
        QVERIFY(!QFile::exists(target));
    }
    const QString song = made("song.mp3", tagOf(coverFrame(svg)) + sound());
    QCOMPARE(AudioPlayer::getCover(song), QString());
    QVERIFY(
        !AudioPlayer::getCover(made("song.mp3", tagOf(coverFrame(contentOf(path("secret.png")))) + sound()))
             .isEmpty());
}

void TestStrangers::pictures_areNotWaitedFor()
{
    const QString pipe = path("pipe.png");
    QCOMPARE(mkfifo(qPrintable(pipe), 0600), 0);
    QCOMPARE(ImageEditProvider::instance()->readThumbImage(pipe), pipe);
    QByteArray bytes;
    QVERIFY(!Util::scaleThumbBytes(pipe, 32, bytes));
    QString target = path("edited.png");
    QVERIFY(!ImageEditProvider::instance()->doEditSync(pipe, target, {{"x2", 1}, {"y2", 1}}));
}

void TestStrangers::crop_ofHugePhoto_needsNoMore()
{
    {
        QImage photo(12000, 9000, QImage::Format_Grayscale8);
        photo.fill(90);
        QVERIFY(photo.save(path("photo.jpg")));
    }
    const PeakMemory memory;
    QString target = path("crop.png");
    QVERIFY(ImageEditProvider::instance()->doEditSync(
        path("photo.jpg"), target, {{"x1", 0.5}, {"y1", 0.5}, {"x2", 0.51}, {"y2", 0.51}}));
    QCOMPARE(QImage(target).size(), QSize(120, 90));
    QVERIFY(ImageEditProvider::instance()->doEditSync(path("photo.jpg"), target, {{"x2", 1}, {"y2", 1}}));
    QCOMPARE(QImage(target).size(), QSize(2560, 1920));
    QVERIFY2(memory.megabytes() < 100, qPrintable(QString::number(memory.megabytes())));
}

void TestStrangers::firstFrame_isMade_whenAspectIsNone()
{
    AVFormatContext* context = nullptr;
    int index = -1;
    VideoCapture* capture = VideoCapture::instance();
    QVERIFY(capture->initFormat(&context, &index, qPrintable(media("base.mp4"))));
    context->streams[index]->sample_aspect_ratio = {0, 0};
    QSize size;
    QVERIFY(capture->decodeFirstFrame(context, index, path("aspect.png"), size));
    QCOMPARE(QImage(path("aspect.png")).size(), size);
    avformat_close_input(&context);
}

/// FFmpeg compares each with all before it.
void TestStrangers::tag_isRefused_ofTooManyEntries()
{
    const QByteArray entry = tagFrame("TXXX", QByteArray("\0k\0v", 4));
    for (const int count : {4000, 5000}) {
        long long duration = 0;
        QString format;
        const QString file = made("tag.mp3", tagOf(entry.repeated(count)) + sound());
        QCOMPARE(AudioPlayer::audioFormat(file, duration, format), count == 4000);
    }
}

void TestStrangers::results_areWhole_orAsBefore()
{
    const QByteArray former("precious");
    const QString song =
        made("song.mp3",
             tagOf(coverFrame(ImageBytes::encoded(QImage(200, 200, QImage::Format_RGB32), "BMP"))) + sound());
    const QString gif = made("pictures.gif", GifWriter(40, 30).greys(3, 5).finished());
    QString edited = path("edit.bmp");
    const QVariantMap whole{{"x2", 1}, {"y2", 1}};
    const QVariantMap pcm{
        {"pcmData", QByteArray(5000, 'x')},
        {"pcmInfo", QVariantMap{{"sampleFormat", "PCMFormatInt16"}, {"sampleRate", 8000}, {"channels", 1}}}};
    const auto write = [&](const QString& target) {
        return QList<bool>{VideoCapture::instance()->syncDecodeCapture(media("base.mp4"), target),
                           AudioPlayer::audioCover(song, target),
                           ImageEditProvider::instance()->doEditSync(media("cover.png"), edited, whole),
                           Util::instance()->scaleThumbImage(media("cover.png"), target, {20, 20}, 8, true),
                           CWaveWriter::writeWaveFile(pcm, target),
                           GifHandler().compressGifSync("id", gif, path("full.gif"), 0, {40, 30}),
                           !AudioPlayer::getCover(song).isEmpty()};
    };
    for (const rlim_t room : {0, 60, 1000}) {
        const InCase in_case(room);
        for (const char* name : {"target.bmp", "edit.bmp", "full.gif"})
            made(name, former);
        QList<bool> results;
        {
            const FullDisk disk(room);
            results = write(path("target.bmp"));
        }
        QCOMPARE(results.count(true), room == 1000 ? results.count(true) : 0);
        QCOMPARE(results.mid(0, 5), (QList<bool>{false, false, false, false, false}));
        for (const char* name : {"target.bmp", "edit.bmp"})
            QCOMPARE(contentOf(path(name)), former);
    }
    QVERIFY(!write(path("target.bmp")).contains(false));
    QVERIFY(contentOf(path("target.bmp")).startsWith("RIFF"));
    QCOMPARE(QDir(folder.path()).entryList({".*", "target.bmp.*"}, QDir::Files | QDir::Hidden),
             QStringList());
}

QTEST_GUILESS_MAIN(TestStrangers)
#include "test_strangers.moc"
