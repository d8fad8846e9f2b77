#include "multimedia/base/warning.h"
#include "multimedia/facedetect/facedetect.h"
#include "multimedia/facedetect/facepatch.h"
#include "tests/support/faces.h"
#include "tests/support/files.h"
#include "tests/support/incase.h"
#include "tests/support/logcapture.h"
#include "tests/support/stderrcapture.h"

#include <QtGui/QImage>
#include <QtTest/QtTest>

#include <cmath>
#include <limits>

namespace {

/// The portrait's face, as the detector would tell it.
const FaceRect_ kFace = {0.99F, 180, 60, 90, 110, {205, 105, 245, 108, 226, 130, 210, 148, 243, 150}};

QImage portrait()
{
    QImage image(dataFile("photos/astronaut.jpg"));
    return image.scaledToHeight(480).convertToFormat(QImage::Format_BGR888);
}

/// The filter once more: one pass along a line of numbers.
void smearLine(int* first, int step, int count, int weight)
{
    int running = *first * 16;
    for (int i = 1; i < count; ++i) {
        running += (first[i * step] * 16 - running) * weight / 16;
        first[i * step] = running / 16;
    }
}

/// Down, to the right, up and to the left.
void smearPlainly(std::vector<int>* values, int width, int height, int weight)
{
    int* const first = values->data();
    for (int x = 0; x < width; ++x)
        smearLine(first + x, width, height, weight);
    for (int y = 0; y < height; ++y)
        smearLine(first + y * width, 1, width, weight);
    for (int x = 0; x < width; ++x)
        smearLine(first + (height - 1) * width + x, -width, height, weight);
    for (int y = 0; y < height; ++y)
        smearLine(first + (y + 1) * width - 1, -1, width, weight);
}

} // namespace

class TestFaceDetect : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QLoggingCategory::setFilterRules("quillon.multimedia.debug=false"); }

    void faceDetect_seesScaledImage();
    void faceMask_givesImageBack_withoutFaces();
    void smear_isExponentialFilter();
    void blur_hidesFaceOnly_inEveryFormat();
    void blur_obeysScoreRule();
    void blur_survives_oddFaces();
    void blur_scalesToImage_andTakesColoursFromDetectionImage();
    void modelTool_refuses_whatDoesNotFit();
};

void TestFaceDetect::faceDetect_seesScaledImage()
{
    // The size of an image, its device pixels to a logical one, and the size that the detector gets.
    for (const auto& [size, ratio, detectionSize] : {std::tuple(QSize(480, 300), 1.0, QSize(480, 300)),
                                                     {QSize(99, 101), 1.0, QSize(99, 101)},
                                                     {QSize(960, 400), 1.0, QSize(480, 200)},
                                                     {QSize(400, 960), 1.0, QSize(200, 480)},
                                                     {QSize(600, 600), 1.0, QSize(480, 480)},
                                                     {QSize(700, 700), 2.0, QSize(700, 700)},
                                                     {QSize(1200, 600), 1.5, QSize(720, 360)}}) {
        const InCase in_case(size, ratio);
        QImage image = portrait().scaled(size).convertToFormat(QImage::Format_RGB32);
        const QImage seen = image.scaled(detectionSize, Qt::IgnoreAspectRatio, Qt::FastTransformation)
                                .convertToFormat(QImage::Format_BGR888);
        image.setDevicePixelRatio(ratio);
        QByteArray rows;
        for (int y = 0; y < seen.height(); ++y)
            rows.append(reinterpret_cast<const char*>(seen.constScanLine(y)), seen.width() * 3);
        const auto expected = objectdetect_cnn(reinterpret_cast<const uchar*>(rows.constData()), seen.width(),
                                               seen.height(), seen.width() * 3);
        QVERIFY(isSame(multimedia::faceDetect(image), expected));
    }
}

void TestFaceDetect::faceMask_givesImageBack_withoutFaces()
{
    StderrCapture errors;
    QVERIFY(multimedia::faceMask(QImage()).isNull());
    QVERIFY(multimedia::faceDetect(QImage()).empty());
    const QImage small = portrait().scaled(40, 40);
    QCOMPARE(multimedia::faceMask(small), small);
    const QImage line = portrait().scaled(2000, 1);
    QCOMPARE(multimedia::faceMask(line), line);
}

void TestFaceDetect::smear_isExponentialFilter()
{
    for (const auto& [size, weight] : {std::pair(QSize(1, 1), 14),
                                       {QSize(9, 1), 14},
                                       {QSize(2, 30), 10},
                                       {QSize(7, 8), 4},
                                       {QSize(20, 17), 2},
                                       {QSize(18, 40), 1}}) {
        const InCase in_case(size);
        QImage image = portrait()
                           .copy(180, 60, size.width(), size.height())
                           .convertToFormat(QImage::Format_ARGB32_Premultiplied);
        const QImage before = image;
        multimedia::smear(&image);
        for (int c = 0; c < 4; ++c) {
            std::vector<int> channel(std::size_t(size.width()) * std::size_t(size.height()));
            for (int i = 0; i < size.width() * size.height(); ++i)
                channel[i] = before.constScanLine(i / size.width())[4 * (i % size.width()) + c];
            smearPlainly(&channel, size.width(), size.height(), weight);
            for (int i = 0; i < size.width() * size.height(); ++i)
                QCOMPARE(int(image.constScanLine(i / size.width())[4 * (i % size.width()) + c]), channel[i]);
        }
    }
}

void TestFaceDetect::blur_hidesFaceOnly_inEveryFormat()
{
    const QImage seen = portrait();
    for (const QImage::Format format :
         {QImage::Format_RGB32, QImage::Format_ARGB32, QImage::Format_RGB888, QImage::Format_BGR888,
          QImage::Format_Grayscale8, QImage::Format_Indexed8}) {
        const InCase in_case(format);
        const QImage image = seen.convertToFormat(format);
        const QImage blurred = multimedia::withFacesBlurred(image, seen, {kFace});
        QCOMPARE(blurred.format(), format);
        QCOMPARE(blurred.size(), image.size());

        const QRect face(kFace.x, kFace.y, kFace.w, kFace.h);
        const QRect area = patchBetween(image, blurred, 0);
        QVERIFY(area.contains(face.adjusted(4, 4, -4, -4)));
        QVERIFY(face.adjusted(-25, -25, 25, 25).contains(area));

        // A palette dithers, so detail is measured where there is none.
        if (format == QImage::Format_Indexed8)
            continue;
        const QRect inner = face.adjusted(15, 15, -15, -15);
        QVERIFY2(
            detail(blurred, inner) < 0.15 * detail(image, inner),
            qPrintable(QStringLiteral("%1 of %2").arg(detail(blurred, inner)).arg(detail(image, inner))));
    }
}

void TestFaceDetect::blur_obeysScoreRule()
{
    const QImage image = portrait();
    for (const auto& [scores, isBlurred] : {std::pair(QVector<float>{0.94F}, QVector<bool>{false}),
                                            {QVector<float>{0.96F}, QVector<bool>{true}},
                                            {QVector<float>{0.95F, 0.94F}, QVector<bool>{true, true}},
                                            {QVector<float>{0.95F, 0.90F}, QVector<bool>{true, false}},
                                            {QVector<float>(14, 0.5F), QVector<bool>(14, true)}}) {
        const InCase in_case(scores);
        std::vector<FaceRect_> faces;
        faces.reserve(static_cast<std::size_t>(scores.size()));
        for (int i = 0; i < scores.size(); ++i)
            faces.push_back({scores[i], 20 + i % 4 * 110, 30 + i / 4 * 110, 40, 40, {}});

        QLoggingCategory::setFilterRules("quillon.multimedia.debug=true");
        LogCapture log;
        const QImage blurred = multimedia::withFacesBlurred(image, image, faces);
        initTestCase();
        QCOMPARE(log.count("face score:"), scores.size());
        for (int i = 0; i < scores.size(); ++i) {
            const QRect face(faces[i].x, faces[i].y, faces[i].w, faces[i].h);
            QCOMPARE(image.copy(face) != blurred.copy(face), bool(isBlurred[i]));
        }
    }
}

void TestFaceDetect::blur_survives_oddFaces()
{
    const QImage image = portrait();
    constexpr int kFar = std::numeric_limits<int>::max();
    for (const auto& [rect, isBlurred] : {std::pair(QRect(180, 60, 90, 110), true), // level eyes
                                          {QRect(-20, -20, 60, 60), true},
                                          {QRect(200, 100, 1, 1), true},
                                          {QRect(200, 100, 3, 200), true},
                                          {QRect(200, 100, 0, 0), false},
                                          {QRect(200, 100, -5, 40), false},
                                          {QRect(0, 0, 480, 480), true}}) {
        const InCase in_case(rect);
        const FaceRect_ face = {0.99F, rect.x(), rect.y(), rect.width(), rect.height(), {}};
        // Landmarks as far apart as they go: no turn that a number can hold.
        FaceRect_ torn = face;
        torn.lm = {-kFar, 0, kFar, 1, 0, 0, 0, -kFar, 0, kFar};
        QCOMPARE(multimedia::withFacesBlurred(image, image, {torn}) != image, isBlurred);
        const QImage blurred = multimedia::withFacesBlurred(image, image, {face});
        QCOMPARE(blurred.size(), image.size());
        QCOMPARE(blurred != image, isBlurred);
        const QRect surroundings =
            rect.adjusted(-rect.width() - 2, -rect.height() - 2, rect.width() + 2, rect.height() + 2);
        QVERIFY(surroundings.contains(patchBetween(image, blurred, 0)) || !isBlurred);
    }
}

void TestFaceDetect::blur_scalesToImage_andTakesColoursFromDetectionImage()
{
    QImage image(960, 720, QImage::Format_RGB32);
    image.fill(Qt::white);
    image.setDevicePixelRatio(2.0);
    QImage seen(480, 360, QImage::Format_BGR888);
    seen.fill(QColor(200, 0, 0));
    // Drawn in logical pixels of the image, which are two of its own: x of 100 becomes 50, times 2 for the
    // scale between the images, times 2 on the way to the bits.
    const FaceRect_ face = {0.99F, 100, 60, 80, 80, {}};
    const QImage blurred = multimedia::withFacesBlurred(image, seen, {face});
    QCOMPARE(blurred.devicePixelRatio(), 2.0);
    const QRect area = patchBetween(image, blurred, 0);
    QVERIFY2(std::abs(area.center().x() - 280) < 4 && std::abs(area.center().y() - 200) < 4,
             qPrintable(QStringLiteral("%1 %2").arg(area.center().x()).arg(area.center().y())));
    QVERIFY(area.width() > 180 && area.width() <= 196);
    const QColor centre = blurred.pixelColor(280, 200);
    QVERIFY(centre.red() > 190 && centre.green() < 5 && centre.blue() < 5);
    QCOMPARE(blurred.pixelColor(area.topLeft()).name(), "#ffffff");
}

void TestFaceDetect::modelTool_refuses_whatDoesNotFit()
{
    const QTemporaryDir folder;
    const QString path = folder.filePath("model.bin");
    const QString tool = QLatin1String(kFaceModelTool);
    const QString sizes = "it announces %1 and holds %2 bytes of weights and biases, not 2326816";
    // Which byte is changed, and how many are added to the file.
    for (const auto& [position, length, reason] : {std::tuple(-1, 0, QString()),
                                                   {0, 0, "it does not begin as a face model does"},
                                                   {8, 0, "its version is 0, not 1"},
                                                   {12, 0, "it has 25 rows, not 24"},
                                                   {16, 0, sizes.arg(2326817).arg(2326816)},
                                                   {1000000, 0, "its checksum is wrong"},
                                                   {-1, -1, sizes.arg(2326816).arg(2326815)},
                                                   {-1, -2326840, "it is shorter than its header"}}) {
        const InCase in_case(position, length);
        QCOMPARE(QProcess::execute(tool, {"random", "5", path}), 0);
        QFile file(path);
        QVERIFY(file.open(QFile::ReadWrite));
        if (position >= 0) {
            file.seek(position);
            const char byte = file.read(1).at(0);
            file.seek(position);
            file.putChar(static_cast<char>(byte ^ 1));
        }
        QVERIFY(file.resize(file.size() + length));
        file.close();

        QProcess process;
        process.start(tool, {"check", path});
        QVERIFY(process.waitForFinished());
        const QString said = QString::fromUtf8(process.readAllStandardError());
        QCOMPARE(process.exitCode() == 0, reason.isEmpty());
        const QString complaint = path + ": error: not a usable face model: " + reason + "\n";
        QCOMPARE(said, reason.isEmpty() ? QString() : complaint);
    }
}

QTEST_MAIN(TestFaceDetect)
#include "test_facedetect.moc"
