#include "quillon/util.h"

#include <QtCore/QBuffer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QMutex>
#include <QtCore/QRandomGenerator>
#include <QtCore/QSaveFile>
#include <QtCore/QSet>
#include <QtCore/QUrl>
#include <QtCore/QUuid>
#include <QtGui/QImage>
#include <QtGui/QImageReader>
#include <QtGui/QImageWriter>

#include <algorithm>

namespace {

/// Qt 5 sets no bound of its own: a few bytes of header could ask for gigabytes.
constexpr qint64 kMaxPixels = 100'000'000;

/// A dangling link also takes the name: writing to it would write elsewhere.
bool isTaken(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

QString numbered(const QString& path, int number)
{
    const QFileInfo info(path);
    // A leading dot makes a hidden file, not a suffix.
    const bool has_suffix = !info.completeBaseName().isEmpty() && !info.suffix().isEmpty();
    const int stem_length = has_suffix ? path.size() - info.suffix().size() - 1 : path.size();
    return path.left(stem_length) + QStringLiteral(" (%1)").arg(number) + path.mid(stem_length);
}

/// The size of the picture as it is shown, without reading its pixels; invalid if it is not to be read.
QSize shownSize(QImageReader& reader)
{
    // A pipe would be waited for, and a vector format may show other files.
    static const QList<QByteArray> formats = {"png", "jpeg", "gif", "bmp", "webp"};
    reader.setDecideFormatFromContent(true);
    reader.setAutoTransform(true);
    if (!QFileInfo(reader.fileName()).isFile() || !formats.contains(reader.format()))
        return {};
    const QSize size = reader.size();
    if (size.isEmpty() || qint64(size.width()) * size.height() > kMaxPixels)
        return {};
    return reader.transformation() & QImageIOHandler::TransformationRotate90 ? size.transposed() : size;
}

/// Reads at `shown` size or, if that does not fit into `box`, scaled down to it.
QImage readScaled(QImageReader& reader, const QSize& shown, const QSize& box)
{
    if (shown.width() > box.width() || shown.height() > box.height()) {
        QSize scaled = shown.scaled(box, Qt::KeepAspectRatio).expandedTo({1, 1});
        if (reader.transformation() & QImageIOHandler::TransformationRotate90)
            scaled.transpose();
        reader.setScaledSize(scaled);
    }
    return reader.read();
}

} // namespace

Util* Util::instance()
{
    static Util util;
    return &util;
}

QString Util::createTmpId(int length) const
{
    constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz234567";
    QString id;
    for (int i = 0; i < length; ++i)
        id += QLatin1Char(kLetters[QRandomGenerator::system()->bounded(32)]);
    return id;
}

QString Util::uuid()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

double Util::generateRand(double first, double second)
{
    const auto [low, high] = std::minmax(first, second);
    const double part = QRandomGenerator::global()->generateDouble();
    return std::clamp(low * (1.0 - part) + high * part, low, high);
}

QString Util::toLocalFile(const QString& url_or_path)
{
    if (url_or_path.startsWith(QLatin1String("file:"), Qt::CaseInsensitive))
        return QUrl(url_or_path).toLocalFile();
    if (url_or_path.startsWith(QLatin1String("qrc:"), Qt::CaseInsensitive))
        return QLatin1Char(':') + QUrl(url_or_path).path();
    return url_or_path;
}

bool Util::fileExists(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() && !info.isDir();
}

bool Util::deleteFile(const QString& path)
{
    return QFile::remove(path);
}

QString Util::newFile(const QString& path)
{
    static QMutex mutex;
    static QSet<QString> given; // and not yet seen on disk; guarded by `mutex`

    const QMutexLocker lock(&mutex);
    QString candidate = path;
    for (int number = 1;; ++number) {
        if (isTaken(candidate))
            given.remove(candidate);
        else if (!given.contains(candidate))
            break;
        candidate = numbered(path, number);
    }
    given.insert(candidate);
    return candidate;
}

bool Util::scaleThumbImage(const QString& source, const QString& target, const QSize& box, int limit,
                           bool always_write) const
{
    QImageReader reader(source);
    const QSize shown = shownSize(reader);
    if (!shown.isValid() || box.isEmpty())
        return false;
    if (!always_write && shown.width() <= limit && shown.height() <= limit)
        return false;
    const QImage thumb = readScaled(reader, shown, box);
    if (thumb.isNull())
        return false;

    QSaveFile file(target);
    // It may stand in a folder that others look into.
    if (!file.open(QIODevice::WriteOnly) || !file.setPermissions(QFile::ReadOwner | QFile::WriteOwner))
        return false;
    // `commit` by itself does not see that the last bytes could not be written.
    return QImageWriter(&file, QFileInfo(target).suffix().toLatin1()).write(thumb) && file.flush() &&
           file.commit();
}

bool Util::scaleThumbBytes(const QString& path, int limit, QByteArray& bytes)
{
    bytes.clear();
    QImageReader reader(path);
    const QSize shown = shownSize(reader);
    if (!shown.isValid() || limit < 1)
        return false;
    const QImage thumb = readScaled(reader, shown, {limit, limit});
    QBuffer png;
    png.open(QIODevice::WriteOnly);
    if (thumb.isNull() || !thumb.save(&png, "PNG"))
        return false;
    bytes = png.data().toBase64();
    return true;
}
