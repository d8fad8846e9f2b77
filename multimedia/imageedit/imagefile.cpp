#include "multimedia/imageedit/imagefile.h"

#include "multimedia/base/warning.h"
#include "quillon/util.h"

#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>
#include <QtGui/QImage>
#include <QtGui/QImageWriter>

namespace ImageEdit {

PictureReader::PictureReader(const QString& path_or_url)
    : QImageReader(Util::toLocalFile(path_or_url))
{
    setDecideFormatFromContent(true);
}

bool isReadable(const QSize& size)
{
    if (size.isEmpty())
        return false;
    if (qint64(size.width()) * size.height() <= kMaxPixels)
        return true;
    multimedia::warning("readImage", "picture has over 100 megapixels");
    return false;
}

QImage readImage(PictureReader& reader)
{
    if (!isReadable(reader.size()))
        return {};
    if (!reader.clipRect().isEmpty() && !isReadable(reader.clipRect().size()))
        return {};
    QImage image = reader.read();
    image.setDevicePixelRatio(1.0);
    return image;
}

QImage loadImage(const QString& path)
{
    PictureReader reader(path);
    return readImage(reader);
}

bool saveImage(const QImage& image, const QString& path, const std::atomic<bool>& cancelled)
{
    QSaveFile file(path);
    if (image.isNull() || !file.open(QIODevice::WriteOnly))
        return false;
    return QImageWriter(&file, QFileInfo(path).suffix().toLatin1()).write(image) && !cancelled &&
           file.commit();
}

} // namespace ImageEdit
