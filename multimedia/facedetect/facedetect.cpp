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

/// The row step is the width times 3 even where the image pads its rows: what has been found in an image so
/// far depends on it, so it stays. The pad bytes that are thus read as pixels are made zero, so that an image
/// gives the same faces each time.
std::vector<FaceRect_> detect(QImage detectionImage)
{
    const int step = detectionImage.width() * 3;
    const int pad = detectionImage.bytesPerLine() - step;
    for (int y = 0; pad > 0 && y < detectionImage.height(); ++y)
        std::memset(detectionImage.scanLine(y) + step, 0, pad);
    return objectdetect_cnn(detectionImage.constBits(), detectionImage.width(), detectionImage.height(),
                            step);
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
