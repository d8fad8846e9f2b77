#pragma once

#include <QtCore/QString>
#include <QtGui/QImageReader>

#include <atomic>
#include <memory>

class QImage;

/// @file
/// Reading and writing of pictures that come from others. Any thread.

namespace multimedia {

/// Pictures of more pixels are refused with a log line; Qt 5 has no bound of its own.
constexpr qint64 kMostPixels = 100'000'000;
/// Of a picture of which a part, or a small copy, can be had without the whole.
constexpr qint64 kMostPixelsByLines = 400'000'000;

/// Reads a picture, if its bytes say that it is a PNG, a JPEG, a GIF, a BMP or a WebP; its name says nothing.
/// Others, vector formats above all, which may show other files, are not read: the reader has no device then.
/// Folders, pipes and devices are refused before they can block.
class PictureReader : public QImageReader
{
public:
    /// Of a file, by its path or a "file:" URL.
    explicit PictureReader(const QString& path_or_url);
    explicit PictureReader(const QByteArray& bytes);
    ~PictureReader();

    /// Whether a part of it can be had without the whole.
    bool isByLines() const { return is_by_lines; }
    /// Whether there is a picture, and not too large a one; logs if it is too large.
    bool isReadable() const;

private:
    void begin(std::unique_ptr<QIODevice> opened);

    std::unique_ptr<QIODevice> source;
    QSize screen; ///< of a GIF, whose first picture may be smaller
    bool is_by_lines = false;
};

/// What the reader gives, or a null image if its file, or what was asked of it, is too large.
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

} // namespace multimedia
