#include "multimedia/imageedit/imagefile.h"

#include "multimedia/base/warning.h"
#include "quillon/util.h"

#include <QtCore/QBuffer>
#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>
#include <QtGui/QImage>
#include <QtGui/QImageWriter>
#include <QtGui/QTransform>

#include <array>

namespace ImageEdit {
namespace {

bool write(const QImage& image, QIODevice* device, const QString& path)
{
    return QImageWriter(device, QFileInfo(path).suffix().toLatin1()).write(image);
}

/// A JPEG segment of EXIF data that hold the orientation and nothing else.
QByteArray exifOf(QImageIOHandler::Transformations turn)
{
    // By mirror (1), flip (2) and quarter turn to the right (4).
    constexpr std::array<char, 8> kOrientations = {1, 2, 4, 3, 6, 7, 5, 8};
    static constexpr char kHead[] = "\xff\xe1\x00\x22"            // what it is, and its length
                                    "Exif\0\0MM\0*\0\0\0\x08"     // big-endian, first directory at 8
                                    "\0\x01"                      // one entry:
                                    "\x01\x12\0\x03\0\0\0\x01\0"; // orientation, one short
    QByteArray segment(kHead, sizeof kHead - 1);
    segment += kOrientations[turn];
    return segment + QByteArray(2 + 4, '\0'); // fills the entry up; no further directory
}

} // namespace

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

QImage loadImage(const QString& path, QImageIOHandler::Transformations* turn)
{
    PictureReader reader(path);
    if (turn)
        *turn = reader.transformation();
    return readImage(reader);
}

QImage toUpright(const QImage& image, QImageIOHandler::Transformations turn)
{
    const QImage mirrored = image.mirrored(turn & QImageIOHandler::TransformationMirror,
                                           turn & QImageIOHandler::TransformationFlip);
    return turn & QImageIOHandler::TransformationRotate90 ? mirrored.transformed(QTransform().rotate(90))
                                                          : mirrored;
}

QImage toStored(const QImage& image, QImageIOHandler::Transformations turn)
{
    const QImage turned =
        turn & QImageIOHandler::TransformationRotate90 ? image.transformed(QTransform().rotate(-90)) : image;
    return turned.mirrored(turn & QImageIOHandler::TransformationMirror,
                           turn & QImageIOHandler::TransformationFlip);
}

bool saveImage(const QImage& image, const QString& path, const std::atomic<bool>& cancelled)
{
    QSaveFile file(path);
    if (image.isNull() || !file.open(QIODevice::WriteOnly))
        return false;
    return write(image, &file, path) && !cancelled && file.commit();
}

bool saveStored(const QImage& image, QImageIOHandler::Transformations turn, const QString& path)
{
    if (turn == QImageIOHandler::TransformationNone)
        return saveImage(image, path);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QSaveFile file(path);
    if (image.isNull() || !write(image, &buffer, path) || !file.open(QIODevice::WriteOnly))
        return false;
    if (bytes.startsWith("\xff\xd8")) // a JPEG, whose segments begin behind this
        bytes.insert(2, exifOf(turn));
    return file.write(bytes) == bytes.size() && file.commit();
}

} // namespace ImageEdit
