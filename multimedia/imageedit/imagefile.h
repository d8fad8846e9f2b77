#pragma once

#include <QtCore/QString>
#include <QtGui/QImageReader>

#include <atomic>

class QImage;
class QSize;

/// @file
/// Reading and writing of pictures that come from others. Any thread.
///
/// The format of a picture is told by its content, never by its name, and its size is looked at before its
/// pixels are read.

namespace ImageEdit {

/// Pictures of more pixels are refused with a log line; Qt 5 has no bound of its own.
constexpr qint64 kMaxPixels = 100'000'000;

/// Reads the picture at a path or a "file:" URL.
class PictureReader : public QImageReader
{
public:
    explicit PictureReader(const QString& path_or_url);
};

/// Whether a picture of `size` may be brought into memory; logs if it is too large. An empty size may not.
bool isReadable(const QSize& size);

/// What the reader gives, or a null image if its file, or the clip rectangle set on it, is too large.
///
/// The device pixel ratio is 1 even if the file's name asks for another one.
QImage readImage(PictureReader& reader);

/// The whole picture at a path or a "file:" URL, as it is stored, or a null image.
///
/// @param turn  if set, becomes the turn by which EXIF data make it upright; kept if there is no picture
QImage loadImage(const QString& path, QImageIOHandler::Transformations* turn = nullptr);

/// A stored picture as people see it.
QImage toUpright(const QImage& image, QImageIOHandler::Transformations turn);

/// The inverse of `toUpright`.
QImage toStored(const QImage& image, QImageIOHandler::Transformations turn);

/// Writes `image` in the format of the suffix of `path` at default quality.
///
/// The file is there as a whole or, if false comes back, as it was before.
///
/// @param cancelled  if set, false comes back; looked at last before the file takes its place
bool saveImage(const QImage& image, const QString& path, const std::atomic<bool>& cancelled = false);

/// `saveImage` of a stored picture; a JPEG gets EXIF data that ask for its turn.
bool saveStored(const QImage& image, QImageIOHandler::Transformations turn, const QString& path);

} // namespace ImageEdit
