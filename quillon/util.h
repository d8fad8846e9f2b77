#pragma once

#include "quillon/quillon_global.h"

#include <QtCore/QByteArray>
#include <QtCore/QSize>
#include <QtCore/QString>

/// Small services of the client that any of its libraries may call: names, files, thumbnails.
///
/// There is one object, made on first use; the object has no state. Every function may be called from any
/// thread.
class QUILLON_EXPORT Util
{
public:
    static Util* instance();

    /// A random id of `length` characters out of a-z and 2-7, from the system's secure generator. Safe as a
    /// file name, also where names differ in case only. Empty when `length` is not positive.
    QString createTmpId(int length) const;
    /// A random UUID without braces, from the system's secure generator.
    static QString uuid();
    /// A random value between the two arguments, which may stand in either order.
    static double generateRand(double first, double second);

    /// The local path that a "file:" or "qrc:" URL names; any other text is taken for a path and returned
    /// unchanged.
    static QString toLocalFile(const QString& url_or_path);
    /// True for anything that can be opened as a file; a folder is none.
    static bool fileExists(const QString& path);
    /// Removes a file or a link, never a folder. False if nothing was removed.
    static bool deleteFile(const QString& path);
    /// `path` itself if nothing has that name, else the first free one of "name (1).ext", "name (2).ext"...
    ///
    /// Nothing is created. A name once given is not given again in this process before its file was seen to
    /// exist, so two callers that ask at the same time never get the same one.
    static QString newFile(const QString& path);

    /// Writes a copy of the picture at `source`, scaled down to fit into `box`, to `target`.
    ///
    /// The aspect ratio is kept, the turn that EXIF data ask for is carried out. The format of `source` is
    /// told by its content, that of `target` by its suffix.
    ///
    /// @param limit         a picture whose sides are both at most this many pixels needs no thumbnail
    /// @param always_write  writes even such a picture, at its own size
    /// @return whether `target` was written. False, with `target` untouched, if the picture is small enough,
    ///         cannot be read, has over 100 million pixels, or `target` cannot be written.
    bool scaleThumbImage(const QString& source, const QString& target, const QSize& box, int limit,
                         bool always_write) const;
    /// Fills `bytes` with the Base64 text of a PNG of the picture at `path`, at most `limit` pixels on a
    /// side; read as `scaleThumbImage` reads. False, with `bytes` empty, if the picture cannot be read.
    static bool scaleThumbBytes(const QString& path, int limit, QByteArray& bytes);

private:
    Util() = default;
};
