#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/rotation.h"
#include "multimedia/videocapture/videocapture.h"
#include "multimedia/videocapture/videoinformation.h"
#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/process.h"
#include "tests/support/videofile.h"

extern "C" {
#include <libavutil/display.h>
}

#include <QtGui/QImage>
#include <QtTest/QtTest>

#include <array>

namespace {

constexpr QSize kUnknownSize(-1, -1);

/// A muxer's stream, to be given a rotation.
struct Stream
{
    Stream()
        : format(avformat_alloc_context())
        , stream(avformat_new_stream(format, nullptr))
    {}
    ~Stream() { avformat_free_context(format); }
    Q_DISABLE_COPY(Stream)

    void setMatrix(const std::array<int32_t, 9>& matrix) const
    {
        memcpy(multimedia::newSideData(*stream, AV_PKT_DATA_DISPLAYMATRIX, sizeof matrix), matrix.data(),
               sizeof matrix);
    }
    void setMatrix(double counterclockwise) const
    {
        std::array<int32_t, 9> matrix{};
        av_display_rotation_set(matrix.data(), -counterclockwise);
        setMatrix(matrix);
    }

    AVFormatContext* format;
    AVStream* stream;
};

} // namespace

class TestVideoCapture : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { av_log_set_level(AV_LOG_QUIET); }
    void rotation_isReadFromEitherForm();
    void probe_answers_whatTheFileIs();
    void probe_refuses_whatIsNoVideo();
    void firstFrame_isUpright_andAtMost1024Wide();
    void firstFrame_fails_forBadInput();
    void containerRotation_isReadFromContainerOnly();
    void probes_releaseTheirFiles();
    void information_isCopied_withoutRotation();
    void information_showsEveryField_toQml();

private:
    VideoCapture* const capture = VideoCapture::instance();
};

void TestVideoCapture::rotation_isReadFromEitherForm()
{
    for (const auto& [counterclockwise, clockwise, display_matrix] :
         {std::tuple(0., 0, 0), {90., 270, 90}, {-90., 90, 270}, {180., 180, 180}, {45., 315, 45}}) {
        const InCase in_case(counterclockwise);
        const Stream turned;
        turned.setMatrix(counterclockwise);
        QCOMPARE(multimedia::rotateTag(*turned.stream), std::optional(clockwise));
        QCOMPARE(capture->getDisplayMatrix(turned.stream), display_matrix);

        av_dict_set(&turned.stream->metadata, "ROTATE", "-90 degrees", 0);
        QCOMPARE(multimedia::rotateTag(*turned.stream), std::optional(-90));

        const Stream plain;
        QCOMPARE(multimedia::rotateTag(*plain.stream), std::optional<int>());
        QCOMPARE(capture->getDisplayMatrix(plain.stream), 0);
        plain.setMatrix(std::array<int32_t, 9>{});
        QCOMPARE(multimedia::rotateTag(*plain.stream), std::optional<int>());
        QCOMPARE(capture->getDisplayMatrix(plain.stream), 0);
    }
}

void TestVideoCapture::probe_answers_whatTheFileIs()
{
    for (const auto& [file, size, format, duration_ms] :
         {std::tuple("base.mp4", QSize(160, 120), "mov", 8000),
          {"base.mkv", QSize(160, 120), "mkv", 8021},
          {"base.avi", QSize(160, 120), "avi", 8000},
          {"rotate90.mp4", QSize(120, 160), "mov", 8000},
          {"rotate180.mov", QSize(160, 120), "mov", 8000},
          {"rotate270.mp4", QSize(120, 160), "mov", 8000},
          {"tag90.mkv", QSize(120, 160), "mkv", 8021},
          {"cover.mp4", QSize(160, 120), "mov", 8000}, // and a video
          {"truncated.mp4", QSize(160, 120), "mov", 8000},
          {"endless.h264", QSize(160, 120), "h26l", 0}}) { // nobody knows
        const InCase in_case(file);
        QCOMPARE(capture->videoSourceSize(media(file)), size);

        long long duration = -1000;
        QString found_format;
        QSize found_size;
        QVERIFY2(capture->syncDecodeFormat(media(file), duration, found_format, found_size), file);
        QCOMPARE(found_size, size);
        QCOMPARE(found_format, QString(format));
        QVERIFY2(qAbs(duration - duration_ms) <= duration_ms / 200, qPrintable(QString::number(duration)));
    }
}

void TestVideoCapture::probe_refuses_whatIsNoVideo()
{
    for (const auto& [file, size] : {std::pair("missing.mp4", kUnknownSize),
                                     {"empty.mp4", kUnknownSize},
                                     {"text.mp4", kUnknownSize},
                                     {"headonly.mp4", kUnknownSize},
                                     {"sound.m4a", kUnknownSize},
                                     {"titles.srt", kUnknownSize},
                                     {".", kUnknownSize},
                                     {"", kUnknownSize},
                                     {"cover.mp3", QSize(64, 64)},    // of a sound
                                     {"nameonly.cdg", kUnknownSize},  // a film by its name
                                     {"base.ts", QSize(160, 120)}}) { // barely recognised
        const InCase in_case(file);
        QCOMPARE(capture->videoSourceSize(media(file)), size);
        long long duration = -7;
        QString format = QStringLiteral("old");
        QString image = QStringLiteral("old");
        QSize found_size(7, 7);
        QVERIFY2(!capture->syncDecodeFormat(media(file), duration, format, found_size), file);
        QVERIFY2(!capture->syncDecodeFormat(media(file), duration, format, image, found_size), file);
        QCOMPARE(image, QStringLiteral("old"));
        QCOMPARE(found_size, QSize(7, 7));
    }
}

void TestVideoCapture::firstFrame_isUpright_andAtMost1024Wide()
{
    // The size of the picture, that of the video, and the red corner of the small ones.
    for (const auto& [file, image_size, video_size, red_corner] :
         {std::tuple("1920x1080.mp4", QSize(1024, 576), QSize(1920, 1080), ""),
          {"1000x700.mp4", QSize(1000, 700), QSize(1000, 700), ""},
          {"1001x700.mp4", QSize(1008, 704), QSize(1001, 700), ""},
          {"base.mp4", QSize(160, 120), QSize(160, 120), "top left"},
          {"rotate90.mp4", QSize(120, 160), QSize(120, 160), "top right"},
          {"rotate180.mov", QSize(160, 120), QSize(160, 120), "bottom right"},
          {"rotate270.mp4", QSize(120, 160), QSize(120, 160), "bottom left"},
          {"base.webm", QSize(160, 120), QSize(160, 120), "top left"},
          {"corrupt.mp4", QSize(160, 120), QSize(160, 120), "top left"},
          {"one.mp4", QSize(160, 120), QSize(160, 120), "top left"}, // of few pictures
          {"two.mp4", QSize(160, 120), QSize(160, 120), "top left"}}) {
        const InCase in_case(file);
        long long duration = -1;
        QString format;
        QString path;
        QSize size;
        QVERIFY2(capture->syncDecodeFormat(media(file), duration, format, path, size), file);
        QCOMPARE(size, video_size);
        QVERIFY(path.startsWith(QDir::tempPath()) && path.endsWith(QLatin1String(".jpg")));
        const QImage image(path);
        QVERIFY(QFile::remove(path));
        QCOMPARE(image.size(), image_size);
        if (*red_corner == '\0')
            continue;
        QCOMPARE(redCorners(image), QString(red_corner));

        const QTemporaryDir folder;
        const QString own = folder.filePath("own.png");
        QVERIFY(capture->syncDecodeCapture(media(file), own));
        QCOMPARE(QImage(own).size(), image_size);
        const QString bytes = folder.filePath("bytes.bmp");
        QVERIFY(capture->captureFirstFrame(media(file).toUtf8().constData(), bytes));
        QCOMPARE(QImage(bytes), QImage(own).convertToFormat(QImage(bytes).format()));
    }
}

void TestVideoCapture::firstFrame_fails_forBadInput()
{
    const QTemporaryDir folder;
    for (const auto& [file, image] : {std::pair("text.mp4", "image.png"),
                                      {"sound.m4a", "image.png"},
                                      {"missing.mp4", "image.png"},
                                      {"huge.mov", "image.png"},
                                      {"base.mp4", "missing/image.png"},
                                      {"base.mp4", "image.nothing"}}) {
        const InCase in_case(file);
        QVERIFY(!capture->syncDecodeCapture(media(file), folder.filePath(image)));
        QVERIFY(!capture->captureFirstFrame(media(file).toUtf8().constData(), folder.filePath(image)));
        QVERIFY2(QDir(folder.path()).isEmpty(), file);
    }
}

void TestVideoCapture::containerRotation_isReadFromContainerOnly()
{
    QCOMPARE(capture->rotation(media("containerrotation.mkv")), 90);
    QCOMPARE(capture->rotation(media("tag90.mkv")), 0);
    QCOMPARE(capture->rotation(media("rotate90.mp4")), 0);
    QCOMPARE(capture->rotation(media("text.mp4")), 0);
}

void TestVideoCapture::probes_releaseTheirFiles()
{
    const LogCapture log; // 200 lines that nobody wants to read
    const QTemporaryDir folder;
    const QString image = folder.filePath("image.png");
    capture->syncDecodeCapture(media("base.mp4"), image);
    const int before = countOf("fd");
    for (int i = 0; i < 100; ++i) {
        QVERIFY(capture->videoSourceSize(media("base.mp4")).isValid());
        QVERIFY(!capture->videoSourceSize(media("headonly.mp4")).isValid());
        QVERIFY(!capture->videoSourceSize(media("sound.m4a")).isValid());
        QVERIFY(capture->syncDecodeCapture(media("rotate90.mp4"), image));
        QVERIFY(!capture->syncDecodeCapture(media("base.mp4"), folder.filePath("x")));
    }
    QCOMPARE(countOf("fd"), before);
}

void TestVideoCapture::information_isCopied_withoutRotation()
{
    VideoInformation source;
    source.facts.valid = true;
    source.facts.videoWidth = 1920;
    source.facts.videoRotate = 90;
    const VideoInformation copy(source);
    QCOMPARE(copy.getVideoRotate(), 0);
    QCOMPARE(copy.getVideoWidth(), 1920);
    VideoInformation assigned;
    assigned.facts.videoRotate = 180;
    assigned = source;
    QCOMPARE(assigned.getVideoRotate(), 180);
    QVERIFY(assigned.isValid());
}

void TestVideoCapture::information_showsEveryField_toQml()
{
    VideoInformation information;
    information.facts = {true, true, 5'000'000'000, 3, 1920, 1080, 4,  5,  6,  7, 8,
                         9,    true, 48000,         2, 11,   12,   13, 14, 15, 16};
    const QVariantList expected{
        true, true, qlonglong(5'000'000'000), 3, 1920, 1080, 5, 6, 7, 8, 9, true, 48000, 2, 11, 12, 13, 14,
        15,   16};
    const QMetaObject& meta = VideoInformation::staticMetaObject;
    QCOMPARE(meta.propertyCount() - meta.propertyOffset(), expected.size());
    for (int i = 0; i < expected.size(); ++i) {
        const QMetaProperty property = meta.property(meta.propertyOffset() + i);
        QCOMPARE(property.read(&information), expected[i]);
        QVERIFY(!property.isWritable());
    }
}

QTEST_GUILESS_MAIN(TestVideoCapture)
#include "test_videocapture.moc"
