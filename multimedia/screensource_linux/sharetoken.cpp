#include "multimedia/screensource_linux/sharetoken.h"

#include "multimedia/base/resultfile.h"
#include "multimedia/base/warning.h"

extern "C" {
#include <libavutil/error.h>
}

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QStandardPaths>

#include <mutex>

namespace multimedia {

namespace {

std::mutex file_mutex; ///< one at a time reads and writes the file

QString folder()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation);
}

QString path()
{
    return folder() + QStringLiteral("/screencast.json");
}

QJsonObject read()
{
    QFile file(path());
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
}

int write(const QJsonObject& tokens)
{
    ResultFile result(path().toStdString());
    if (const int code = result.open(); code < 0)
        return code;
    QFile file(QString::fromStdString(result.path()));
    const QByteArray bytes = QJsonDocument(tokens).toJson();
    if (!file.open(QIODevice::WriteOnly) || !file.setPermissions(QFile::ReadOwner | QFile::WriteOwner) ||
        file.write(bytes) != bytes.size() || !file.flush())
        return AVERROR(EIO);
    file.close();
    return result.commit();
}

} // namespace

QString shareToken(const QString& screen)
{
    std::lock_guard lock(file_mutex);
    return read()[screen].toString();
}

void keepShareToken(const QString& screen, const QString& token)
{
    std::lock_guard lock(file_mutex);
    QJsonObject tokens = read();
    if (tokens[screen].toString() == token)
        return;
    if (token.isEmpty())
        tokens.remove(screen);
    else
        tokens[screen] = token;
    QDir().mkpath(folder());
    if (const int code = write(tokens); code < 0)
        warning("keepShareToken", "error in write the choice of the screen", code);
}

} // namespace multimedia
