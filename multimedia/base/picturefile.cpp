#include "multimedia/base/picturefile.h"

#include "multimedia/base/regularfile.h"
#include "multimedia/base/resultfile.h"
#include "multimedia/base/warning.h"
#include "quillon/util.h"

#include <QtCore/QBuffer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QtEndian>
#include <QtGui/QImage>
#include <QtGui/QImageWriter>
#include <QtGui/QTransform>

#include <array>

namespace multimedia {
namespace {

/// Qt's name for what a file is that begins so; empty for what is not read.
QByteArray formatOf(const QByteArray& begin)
{
    if (begin.startsWith("\x89PNG\r\n\x1a\n"))
        return "png";
    if (begin.startsWith("\xff\xd8\xff"))
        return "jpeg";
    if (begin.startsWith("GIF87a") || begin.startsWith("GIF89a"))
        return "gif";
    if (begin.startsWith("BM"))
        return "bmp";
    if (begin.startsWith("RIFF") && begin.mid(8, 4) == "WEBP")
        return "webp";
    return {};
}

/// Whether a JPEG is stored line by line. The decoder holds others, the progressive ones, as a whole.
/// Source: ITU-T T.81, B.1.1.
bool isSequential(QIODevice& jpeg)
{
    constexpr int kMostSegments = 1000;
    jpeg.seek(2);
    for (int i = 0; i < kMostSegments; ++i) {
        const QByteArray segment = jpeg.read(4);
        if (segment.size() < 4 || segment[0] != '\xff')
            return false;
        const auto marker = uchar(segment[1]);
        if (marker >= 0xc0 && marker <= 0xcf && marker != 0xc4 && marker != 0xc8 && marker != 0xcc)
            return marker <= 0xc1;
        const auto length = qFromBigEndian<quint16>(segment.constData() + 2);
        if (length < 2 || !jpeg.seek(jpeg.pos() + length - 2))
            return false;
    }
    return false;
}

bool isWithin(const QSize& size, qint64 most_pixels)
{
    if (qint64(size.width()) * size.height() <= most_pixels)
        return true;
    warning("readImage", "picture has over " + std::to_string(most_pixels / 1'000'000) + " megapixels");
    return false;
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

QByteArray encoded(const QImage& image, QImageIOHandler::Transformations turn, const QString& path)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    if (!QImageWriter(&buffer, QFileInfo(path).suffix().toLatin1()).write(image))
        return {};
    QByteArray bytes = buffer.data();
    // A JPEG, whose segments begin behind this.
    if (turn != QImageIOHandler::TransformationNone && bytes.startsWith("\xff\xd8"))
        bytes.insert(2, exifOf(turn));
    return bytes;
}

bool save(const QImage& image, QImageIOHandler::Transformations turn, const QString& path,
          const std::atomic<bool>& cancelled)
{
    if (image.isNull())
        return false;
    ResultFile file(path.toStdString());
    int code = file.open();
    if (code >= 0) {
        const QByteArray bytes = encoded(image, turn, path);
        if (bytes.isEmpty() || cancelled)
            return false;
        code = file.write(bytes.constData(), size_t(bytes.size()));
    }
    if (code >= 0 && cancelled)
        return false;
    if (code >= 0)
        code = file.commit();
    if (code < 0)
        warning("saveImage", path.toStdString(), code);
    return code >= 0;
}

} // namespace

PictureReader::PictureReader(const QString& path_or_url)
{
    const QString path = Util::toLocalFile(path_or_url);
    auto file = std::make_unique<QFile>(path);
    bool is_open = false;
    if (path.startsWith(QLatin1Char(':'))) { // a resource of the application
        is_open = file->open(QIODevice::ReadOnly);
    } else {
        const int descriptor = openRegularFile(path.toStdString());
        is_open =
            descriptor >= 0 && file->open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
    }
    if (is_open)
        begin(std::move(file));
}

PictureReader::PictureReader(const QByteArray& bytes)
{
    auto buffer = std::make_unique<QBuffer>();
    buffer->setData(bytes);
    buffer->open(QIODevice::ReadOnly);
    begin(std::move(buffer));
}

PictureReader::~PictureReader()
{
    setDevice(nullptr);
}

/// Qt is not asked what it is: for that it would let each plugin have a look.
void PictureReader::begin(std::unique_ptr<QIODevice> opened)
{
    const QByteArray format = formatOf(opened->peek(12));
    if (format.isEmpty())
        return;
    source = std::move(opened);
    is_by_lines = format == "jpeg" && isSequential(*source);
    const QByteArray header = source->peek(10);
    if (format == "gif" && header.size() == 10)
        screen = {qFromLittleEndian<quint16>(header.constData() + 6),
                  qFromLittleEndian<quint16>(header.constData() + 8)};
    source->seek(0);
    setAutoDetectImageFormat(false);
    setFormat(format);
    setDevice(source.get());
}

bool PictureReader::isReadable() const
{
    const QSize size = this->size();
    return !size.isEmpty() &&
           isWithin(size.expandedTo(screen), is_by_lines ? kMostPixelsByLines : kMostPixels);
}

QImage readImage(PictureReader& reader)
{
    if (!reader.isReadable())
        return {};
    QSize size = reader.clipRect().isEmpty() ? reader.size() : reader.clipRect().size();
    if (reader.isByLines() && reader.scaledSize().isValid())
        size = reader.scaledSize();
    if (!isWithin(size, kMostPixels))
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
    return save(image, QImageIOHandler::TransformationNone, path, cancelled);
}

bool saveStored(const QImage& image, QImageIOHandler::Transformations turn, const QString& path)
{
    return save(image, turn, path, false);
}

} // namespace multimedia
