#include "examples/host/files.h"

#include "quillon/util.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QLocale>
#include <QtCore/QSaveFile>
#include <QtCore/QStandardPaths>

QString Files::path(const QUrl& url) const
{
    return Util::toLocalFile(url.toString());
}

QUrl Files::url(const QString& path) const
{
    return path.isEmpty() ? QUrl() : QUrl::fromLocalFile(path);
}

QString Files::name(const QString& path) const
{
    return QFileInfo(path).fileName();
}

double Files::size(const QString& path) const
{
    return double(QFileInfo(path).size());
}

QString Files::sizeText(double bytes) const
{
    return QLocale().formattedDataSize(qint64(bytes), 1, QLocale::DataSizeTraditionalFormat);
}

QString Files::temporary(const QString& suffix)
{
    const QDir folder(QStandardPaths::writableLocation(QStandardPaths::TempLocation));
    folder.mkpath(QStringLiteral("."));
    return folder.filePath(Util::uuid() + QLatin1Char('.') + suffix);
}

bool Files::saveCopy(const QString& source, const QUrl& target) const
{
    constexpr qint64 kChunk = 1 << 20;
    QFile from(source);
    QSaveFile to(path(target));
    if (!from.open(QIODevice::ReadOnly) || !to.open(QIODevice::WriteOnly))
        return false;
    while (!from.atEnd()) {
        const QByteArray bytes = from.read(kChunk);
        if (bytes.isEmpty() || to.write(bytes) != bytes.size())
            return false;
    }
    return to.commit();
}
