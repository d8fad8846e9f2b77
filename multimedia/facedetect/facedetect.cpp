#include "multimedia/facedetect/facedetect.h"

#include "multimedia/facedetect/facepatch.h"

#include <cstring>

namespace multimedia {
namespace {

QImage toDetectionImage(const QImage& image)
{
    const int limit = static_cast<int>(image.devicePixelRatio() * 480.0);
    if (image.width() <= limit && image.height() <= limit)
        return image.convertToFormat(QImage::Format_BGR888);
    const QImage scaled = image.width() > image.height()
                              ? image.scaledToWidth(limit, Qt::FastTransformation)
                              : image.scaledToHeight(limit, Qt::FastTransformation);
    return scaled.convertToFormat(QImage::Format_BGR888);
}

/// The detector takes rows without padding: one whose width times 3 is no multiple of 4 goes to it as a copy.
std::vector<FaceRect_> detect(const QImage& detectionImage)
{
    const int width = detectionImage.width();
    const int height = detectionImage.height();
    const int step = width * 3;
    if (detectionImage.bytesPerLine() == step)
        return objectdetect_cnn(detectionImage.constBits(), width, height, step);
    std::vector<uchar> rows(static_cast<std::size_t>(step) * height);
    for (int y = 0; y < height; ++y)
        std::memcpy(rows.data() + static_cast<std::ptrdiff_t>(y) * step, detectionImage.constScanLine(y),
                    step);
    return objectdetect_cnn(rows.data(), width, height, step);
}

} // namespace

std::vector<FaceRect_> faceDetect(QImage image)
{
    return detect(toDetectionImage(image));
}

QImage faceMask(QImage image)
{
    const QImage detectionImage = toDetectionImage(image);
    const std::vector<FaceRect_> faces = detect(detectionImage);
    if (faces.empty())
        return image;
    return withFacesBlurred(std::move(image), detectionImage, faces);
}

} // namespace multimedia
