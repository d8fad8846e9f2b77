// Prints the faces that the library finds, for the judging of a model.
//
// Reads paths of pictures from the standard input, one a line, and writes a line of JSON for each:
//   {"file": ..., "width": ..., "height": ..., "faces": [[score, x, y, w, h, lm0 ... lm9], ...]}
// in pixels of the picture. A picture that cannot be read ends the run: a figure must not rest on a part of
// the pictures.

#include "multimedia/facedetect/facedetect.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

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

} // namespace

int main()
{
    constexpr double kDetectionLimit = 480.0;
    std::string path;
    while (std::getline(std::cin, path)) {
        QImage image(QString::fromStdString(path));
        if (image.isNull()) {
            std::fprintf(stderr, "%s: error: not a picture\n", path.c_str());
            return EXIT_FAILURE;
        }
        const double ratio = std::max(1.0, std::max(image.width(), image.height()) / kDetectionLimit);
        QJsonArray faces;
        for (const FaceRect_& face : multimedia::faceDetect(image))
            faces.append(toJson(face, ratio));
        const QJsonObject line = {{"file", QString::fromStdString(path)},
                                  {"width", image.width()},
                                  {"height", image.height()},
                                  {"faces", faces}};
        std::puts(QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
    }
    return EXIT_SUCCESS;
}
