// An edit: its description as one line of JSON, and the picture.
#include "fuzz/input.h"
#include "multimedia/base/picturefile.h"
#include "multimedia/imageedit/editdescription.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>

using namespace multimedia;

void fuzz(const uint8_t* data, size_t size)
{
    constexpr int kMostPixels = 4'000'000;
    const uint8_t* end = std::find(data, data + size, '\n');
    const auto line = QByteArray(reinterpret_cast<const char*>(data), int(end - data));
    const uint8_t* picture = end == data + size ? end : end + 1;
    const InputFile file(picture, size_t(data + size - picture));
    QVariantMap map = QJsonDocument::fromJson(line).object().toVariantMap();
    // A drawing is the picture itself, which has no name to be removed by.
    if (map.contains(QStringLiteral("editedImagePath")))
        map.insert(QStringLiteral("editedImagePath"), file.name());
    const ImageEdit::EditDescription description(map);
    // Larger ones, and a GIF's larger screens, only cost the time to clear memory.
    if (data + size - picture > 9 && *picture == 'G' && (picture[7] > 7 || picture[9] > 7))
        return;
    PictureReader reader(file.name());
    const QSize stored = reader.size();
    if (!reader.isReadable() || qint64(stored.width()) * stored.height() > kMostPixels)
        return;
    const QImage image = description.applied(description.readCropped(reader));
    saveImage(image, resultFolder() + QStringLiteral("/out.bmp"));
    QImageIOHandler::Transformations turn;
    const QImage whole = loadImage(file.name(), &turn);
    saveStored(toStored(toUpright(whole, turn), turn), turn, resultFolder() + QStringLiteral("/out.jpg"));
}
