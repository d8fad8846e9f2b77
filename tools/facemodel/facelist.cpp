// Prints the faces that the library finds, and shows what its blur hides, for the judging of a model.
//
//   facelist [FOLDER]
//
// Reads paths of pictures from the standard input, one a line, and writes a line of JSON for each:
//   {"file": ..., "width": ..., "height": ..., "faces": [[score, x, y, w, h, lm0 ... lm9], ...]}
// in pixels of the picture as EXIF data turn it. With a FOLDER, the n-th picture (from 0) also gives
// FOLDER/n.png, which is white where the blur changes a pixel. A picture that cannot be read ends the run: a
// figure must not rest on a part of the pictures.

#include "multimedia/facedetect/facedetect.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QLoggingCategory>
#include <QtGui/QImageReader>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

namespace {

QJsonArray toJson(const FaceRect_& face, double ratio)
{
    QJsonArray values = {static_cast<double>(face.score), face.x * ratio, face.y * ratio, face.w * ratio,
                         face.h * ratio};
    for (const std::int32_t value : face.lm)
        values.append(value * ratio);
    return values;
}

/// White where two images of one size differ.
QImage difference(const QImage& a, const QImage& b)
{
    const QImage first = a.convertToFormat(QImage::Format_RGB32);
    const QImage second = b.convertToFormat(QImage::Format_RGB32);
    QImage map(a.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < map.height(); ++y) {
        const auto* const one = reinterpret_cast<const QRgb*>(first.constScanLine(y));
        const auto* const other = reinterpret_cast<const QRgb*>(second.constScanLine(y));
        std::transform(one, one + map.width(), other, map.scanLine(y),
                       [](QRgb left, QRgb right) { return left == right ? 0 : 255; });
    }
    return map;
}

int fail(const std::string& path, const char* reason)
{
    std::fprintf(stderr, "%s: error: %s\n", path.c_str(), reason);
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    constexpr double kDetectionLimit = 480.0;
    QLoggingCategory::setFilterRules(QStringLiteral("quillon.multimedia.debug=false")); // a line a face
    std::string path;
    for (int number = 0; std::getline(std::cin, path); ++number) {
        QImageReader reader(QString::fromStdString(path));
        reader.setDecideFormatFromContent(true);
        reader.setAutoTransform(true);
        const QImage image = reader.read();
        if (image.isNull())
            return fail(path, "not a picture");
        const double ratio = std::max(1.0, std::max(image.width(), image.height()) / kDetectionLimit);
        QJsonArray faces;
        for (const FaceRect_& face : multimedia::faceDetect(image))
            faces.append(toJson(face, ratio));
        const QJsonObject line = {{"file", QString::fromStdString(path)},
                                  {"width", image.width()},
                                  {"height", image.height()},
                                  {"faces", faces}};
        std::puts(QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
        if (argc > 1 &&
            !difference(image, multimedia::faceMask(image))
                 .save(QStringLiteral("%1/%2.png").arg(QString::fromLocal8Bit(argv[1])).arg(number)))
            return fail(path, "what the blur hides was not written");
    }
    return EXIT_SUCCESS;
}
