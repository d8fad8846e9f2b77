#include "multimedia/facedetect/facedetect.h"
#include "tests/support/faces.h"
#include "tests/support/files.h"
#include "tests/support/incase.h"

#include <QtGui/QImage>
#include <QtGui/QPainter>
#include <QtTest/QtTest>

#include <algorithm>
#include <cmath>

// What the model in the library is worth on photographs that anyone may have. How good it is stands in
// docs/facemodel.md.

namespace {

QImage photo(const char* name)
{
    return QImage(dataFile("photos/" + QLatin1String(name))).convertToFormat(QImage::Format_RGB32);
}

/// Around the portrait's face, brows to chin, in its own pixels.
const QRect kPortraitFace(178, 70, 94, 112);

struct Person
{
    QPointF centre; ///< of the face, in pixels of the group's picture
    double height;  ///< of the face, in pixels
    double turn;    ///< degrees
    bool isMirrored;
    double light; ///< 1 as it was taken
};

const std::vector<Person> kPeople = {
    {{75, 100}, 75, 0, false, 1.0},   {{190, 95}, 60, 0, true, 0.55},   {{300, 105}, 50, 12, false, 1.0},
    {{400, 100}, 66, -12, true, 1.3}, {{80, 255}, 40, 0, true, 0.8},    {{185, 260}, 30, 0, false, 1.0},
    {{290, 255}, 24, 0, true, 1.0},   {{395, 255}, 85, -6, false, 0.7},
};

/// A picture of 480x360 with the portrait's face in it many times.
QImage group()
{
    const QImage portrait = photo("astronaut.jpg");
    QImage image(480, 360, QImage::Format_RGB32);
    image.fill(QColor(96, 110, 104));
    QPainter painter(&image);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    for (const Person& person : kPeople) {
        const QRect piece = kPortraitFace.adjusted(-45, -55, 45, 45);
        QImage face = portrait.copy(piece).mirrored(person.isMirrored, false);
        for (int y = 0; y < face.height(); ++y) {
            auto* line = reinterpret_cast<QRgb*>(face.scanLine(y));
            std::transform(line, line + face.width(), line, [&](QRgb pixel) {
                const auto lit = [&](int value) {
                    return std::min(255, static_cast<int>(value * person.light));
                };
                return qRgb(lit(qRed(pixel)), lit(qGreen(pixel)), lit(qBlue(pixel)));
            });
        }
        const double scale = person.height / kPortraitFace.height();
        face = face.scaled(face.size() * scale, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        painter.save();
        painter.translate(person.centre);
        painter.rotate(person.turn);
        painter.drawImage(QPointF(-face.width() / 2.0, -face.height() / 2.0), face);
        painter.restore();
    }
    return image;
}

QRectF boxOf(const FaceRect_& face)
{
    return {qreal(face.x), qreal(face.y), qreal(face.w), qreal(face.h)};
}

/// How many of the faces the blur hides; they are the first.
int credible(const std::vector<FaceRect_>& faces)
{
    const double bar = std::pow(0.95, faces.size());
    return static_cast<int>(
        std::count_if(faces.begin(), faces.end(), [&](const FaceRect_& face) { return face.score > bar; }));
}

} // namespace

class TestFaceModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void portrait_isOneFace_withItsLandmarks();
    void portrait_isFound_whateverItsWidth();
    void picturesWithoutPeople_stayAsTheyAre();
    void blur_hidesEveryFace_ofGroup();
};

void TestFaceModel::portrait_isOneFace_withItsLandmarks()
{
    // As it was taken, in small, large so that the library shrinks it, and with a face that fills the
    // picture.
    const QRect whole(0, 0, 512, 512);
    const QRect close = kPortraitFace.adjusted(-24, -12, 24, 12);
    for (const auto& [piece, size] :
         {std::pair(whole, 512), {whole, 160}, {whole, 1600}, {close, 480}, {close, 128}}) {
        const InCase in_case(piece.size(), size);
        const QImage image = photo("astronaut.jpg")
                                 .copy(piece)
                                 .scaled(size, size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        const std::vector<FaceRect_> faces = multimedia::faceDetect(image);
        QCOMPARE(credible(faces), 1);

        // All in the portrait's own pixels.
        const double seen = std::min(size, 480);
        const auto toPortrait = QTransform::fromScale(piece.width() / seen, piece.height() / seen) *
                                QTransform::fromTranslate(piece.x(), piece.y());
        const QRectF box = toPortrait.mapRect(boxOf(faces[0]));
        const QRectF shared = box & QRectF(kPortraitFace);
        const double together = box.width() * box.height() + kPortraitFace.width() * kPortraitFace.height() -
                                shared.width() * shared.height();
        QVERIFY2(
            shared.width() * shared.height() > 0.6 * together,
            qPrintable(
                QStringLiteral("%1 %2 %3 %4").arg(box.x()).arg(box.y()).arg(box.width()).arg(box.height())));
        const std::array<QPointF, 5> expected = {QPointF(203, 100), QPointF(246, 103), QPointF(222, 128),
                                                 QPointF(206, 141), QPointF(244, 141)};
        for (std::size_t i = 0; i < expected.size(); ++i) {
            const QPointF found = toPortrait.map(QPointF(faces[0].lm[2 * i], faces[0].lm[2 * i + 1]));
            QVERIFY2(std::hypot(found.x() - expected[i].x(), found.y() - expected[i].y()) < 10,
                     qPrintable(QStringLiteral("%1: %2 %3").arg(i).arg(found.x()).arg(found.y())));
        }
    }
}

void TestFaceModel::portrait_isFound_whateverItsWidth()
{
    const QImage portrait =
        photo("astronaut.jpg").scaled(320, 320, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    // As wide as that, or brought down to that width by the library.
    for (const int scale : {1, 3}) {
        QVector<float> scores;
        for (int width = 240; width < 248; ++width) {
            const InCase in_case(scale, width);
            const QImage image =
                portrait.copy(0, 0, width, 320).scaled(width * scale, (scale == 1 ? 320 : 480) * scale);
            const std::vector<FaceRect_> faces = multimedia::faceDetect(image);
            QCOMPARE(credible(faces), 1);
            scores += faces[0].score;
        }
        const auto [lowest, highest] = std::minmax_element(scores.cbegin(), scores.cend());
        QVERIFY2(*highest - *lowest < 0.05F,
                 qPrintable(QStringLiteral("%1 to %2").arg(*lowest).arg(*highest)));
    }
}

void TestFaceModel::picturesWithoutPeople_stayAsTheyAre()
{
    QImage black(480, 360, QImage::Format_RGB32);
    black.fill(Qt::black);
    QImage white = black;
    white.fill(Qt::white);
    for (const QImage& image : {photo("rocket.jpg"), photo("coffee.jpg"), photo("cat.jpg"), black, white}) {
        const InCase in_case(image, image.pixel(0, 0));
        QCOMPARE(multimedia::faceMask(image), image);
    }
}

void TestFaceModel::blur_hidesEveryFace_ofGroup()
{
    const QImage image = group();
    QCOMPARE(credible(multimedia::faceDetect(image)), int(kPeople.size()));
    const QImage blurred = multimedia::faceMask(image);
    for (const Person& person : kPeople) {
        const double side = person.height * 0.5;
        const QRect inner =
            QRectF(person.centre.x() - side / 2, person.centre.y() - side / 2, side, side).toRect();
        QVERIFY2(detail(blurred, inner) < 0.35 * detail(image, inner),
                 qPrintable(QStringLiteral("%1,%2: %3 of %4")
                                .arg(inner.x())
                                .arg(inner.y())
                                .arg(detail(blurred, inner))
                                .arg(detail(image, inner))));
    }
}

QTEST_GUILESS_MAIN(TestFaceModel)
#include "test_facemodel.moc"
