#include "multimedia/facedetect/facepatch.h"

#include "multimedia/base/warning.h"

#include <QtCore/QDebug>
#include <QtCore/QLoggingCategory>
#include <QtGui/QPainter>
#include <QtGui/QRadialGradient>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

namespace multimedia {
namespace {

constexpr int kChannels = 4;
constexpr int kFraction = 16; ///< the filter's running values are sixteenths

/// Weight of a new pixel in sixteenths, by the shorter side.
int smearWeight(int radius)
{
    constexpr std::array<int, 17> kWeights = {14, 10, 8, 6, 5, 5, 4, 3, 3, 3, 3, 2, 2, 2, 2, 2, 2};
    if (radius < 1)
        return 16;
    if (radius > static_cast<int>(kWeights.size()))
        return 1;
    return kWeights[radius - 1];
}

/// Runs the filter along `count` pixels that are `step` bytes apart.
void smearLine(uchar* pixel, qsizetype step, int count, int weight)
{
    std::array<int, kChannels> running = {};
    for (int i = 0; i < kChannels; ++i)
        running[i] = pixel[i] * kFraction;
    for (int left = count - 1; left > 0; --left) {
        pixel += step;
        for (int i = 0; i < kChannels; ++i) {
            running[i] += (pixel[i] * kFraction - running[i]) * weight / kFraction;
            pixel[i] = static_cast<uchar>(running[i] >> 4);
        }
    }
}

/// Everything about one face in logical pixels of the image that is painted on.
struct Patch
{
    QRectF face;   ///< widened
    double side;   ///< of the square that the patch is drawn in
    double tilt;   ///< degrees
    QRectF target; ///< of the square
};

/// pi through the arctangent, in hundredths: not an angle, yet it is what fixes the patch's turn.
/// What no int can hold, as for level eyes, gives the most negative one.
int turn(std::int64_t dy, std::int64_t dx)
{
    constexpr double kPi = 3.14159265358979323846;
    const double value = kPi / std::atan(static_cast<double>(dy) / static_cast<double>(dx)) * 100.0;
    return std::abs(value) < std::numeric_limits<int>::max() ? qRound(value)
                                                             : std::numeric_limits<int>::min();
}

double tiltOf(const std::array<std::int64_t, 10>& lm)
{
    const int eyes = turn(lm[3] - lm[1], lm[2] - lm[0]);
    const int mouth = turn(lm[9] - lm[7], lm[8] - lm[6]);
    return (mouth / 100.0 + eyes / 100.0) * 0.5;
}

Patch patchOf(const FaceRect_& face, double dpr, const QSize& detectionSize, double scaleX, double scaleY)
{
    // Landmarks may lie anywhere, so that their differences need more than an int.
    const auto logical = [dpr](int value) { return static_cast<std::int64_t>(value / dpr); };
    const auto x = static_cast<double>(logical(face.x));
    const auto y = static_cast<double>(logical(face.y));
    const auto w = static_cast<double>(logical(face.w));
    const auto h = static_cast<double>(logical(face.h));
    std::array<std::int64_t, 10> lm = {};
    std::transform(face.lm.begin(), face.lm.end(), lm.begin(), logical);

    const int left = static_cast<int>(x - w * 0.1);
    const int top = static_cast<int>(y - h * 0.1);
    const int width = static_cast<int>(w * 1.2);
    const int height = static_cast<int>(h * 1.2);

    Patch patch = {};
    patch.face = QRectF(left * scaleX, top * scaleY, width * scaleX, height * scaleY);
    patch.side = std::max(patch.face.width(), patch.face.height());
    patch.target = QRectF(patch.face.x() + (patch.face.width() - patch.side) * 0.5,
                          patch.face.y() + (patch.face.height() - patch.side) * 0.5, patch.side, patch.side);
    // Small faces are not turned.
    if (static_cast<double>(width) / detectionSize.width() > 0.1)
        patch.tilt = tiltOf(lm);
    return patch;
}

void setHints(QPainter* painter)
{
    painter->setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
}

/// A soft-edged ellipse that lets through what is painted into it.
void paintEllipse(QPainter* painter, const Patch& patch)
{
    const double half = patch.side * 0.5;
    painter->save();
    painter->translate(half, half);
    painter->scale(patch.face.width() / patch.side, patch.face.height() / patch.side);
    painter->rotate(patch.tilt);
    QRadialGradient gradient(QPointF(0.0, 0.0), half);
    gradient.setColorAt(0.0, Qt::black);
    gradient.setColorAt(0.875, Qt::black);
    gradient.setColorAt(1.0, Qt::transparent);
    setHints(painter);
    painter->fillRect(QRectF(-half, -half, patch.side, patch.side), gradient);
    setHints(painter);
    painter->restore();
}

/// The smeared face in the shape of an ellipse; null without memory.
QImage paintPatch(const QImage& face, const Patch& patch)
{
    const int side = static_cast<int>(patch.side);
    QImage mask(side, side, QImage::Format_ARGB32_Premultiplied);
    if (mask.isNull())
        return mask;
    mask.fill(Qt::transparent);

    QPainter painter(&mask);
    paintEllipse(&painter, patch);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    setHints(&painter);
    const QRectF whole(face.rect());
    const QSizeF size = patch.face.size();
    painter.drawImage(QRectF(mask.rect()), face, whole);
    painter.drawImage(QRectF((mask.width() - size.width()) * 0.5, (mask.height() - size.height()) * 0.5,
                             size.width(), size.height()),
                      face, whole);
    return mask;
}

/// False without memory.
bool blurFace(QPainter* painter, const QImage& detectionImage, const FaceRect_& face, const Patch& patch)
{
    QImage crop = detectionImage.copy(face.x, face.y, face.w, face.h)
                      .convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (crop.isNull())
        return false;
    smear(&crop);
    const QImage mask = paintPatch(crop, patch);
    if (mask.isNull())
        return false;
    painter->drawImage(patch.target, mask, QRectF(mask.rect()));
    return true;
}

void logScore(float score)
{
    const QLoggingCategory& category = MultimediaCategoryLogging();
    if (category.isDebugEnabled())
        QMessageLogger("multimedia/facedetect", 110, "QImage multimedia::faceMask(QImage)",
                       category.categoryName())
                .debug()
            << "face score:" << score;
}

bool blurFaces(QImage* image, const QImage& detectionImage, const std::vector<FaceRect_>& faces, double dpr)
{
    const double scaleX = static_cast<double>(image->width()) / detectionImage.width();
    const double scaleY = static_cast<double>(image->height()) / detectionImage.height();
    const double credible = std::pow(0.95, static_cast<double>(faces.size()));
    QPainter painter(image);
    if (!painter.isActive())
        return false;
    setHints(&painter);
    for (const FaceRect_& face : faces) {
        logScore(face.score);
        if (static_cast<double>(face.score) <= credible || face.w < 1 || face.h < 1)
            continue;
        const Patch patch = patchOf(face, dpr, detectionImage.size(), scaleX, scaleY);
        if (patch.face.width() > 0.0 && patch.face.height() > 0.0 && patch.side >= 1.0 &&
            !blurFace(&painter, detectionImage, face, patch))
            return false;
    }
    return true;
}

} // namespace

void smear(QImage* image)
{
    const int width = image->width();
    const int height = image->height();
    const int weight = smearWeight(std::min(width, height));
    const qsizetype row = image->bytesPerLine();
    const qsizetype lastRow = (height - 1) * row;
    const qsizetype lastColumn = static_cast<qsizetype>(width - 1) * kChannels;
    uchar* bits = image->bits();
    for (int x = 0; x < width; ++x)
        smearLine(bits + static_cast<qsizetype>(x) * kChannels, row, height, weight);
    for (int y = 0; y < height; ++y)
        smearLine(bits + y * row, kChannels, width, weight);
    for (int x = 0; x < width; ++x)
        smearLine(bits + lastRow + static_cast<qsizetype>(x) * kChannels, -row, height, weight);
    for (int y = 0; y < height; ++y)
        smearLine(bits + y * row + lastColumn, -kChannels, width, weight);
}

QImage withFacesBlurred(QImage image, const QImage& detectionImage, const std::vector<FaceRect_>& faces)
{
    // Qt cannot paint on images with a palette, so these are painted on in full colour and brought back.
    const QImage::Format format = image.format();
    const QVector<QRgb> palette = image.colorTable();
    const bool hasPalette = !palette.isEmpty();
    const double dpr = image.devicePixelRatio();
    if (hasPalette)
        image = image.convertToFormat(QImage::Format_ARGB32_Premultiplied);

    if (!blurFaces(&image, detectionImage, faces, dpr)) {
        warning("faceMask", "out of memory for the blur");
        return {};
    }
    return hasPalette ? image.convertToFormat(format, palette) : image;
}

} // namespace multimedia
