#pragma once

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QUrl>

/// Small services around files for the host's QML.
class Files : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

public Q_SLOTS:
    QString path(const QUrl& url) const;
    QUrl url(const QString& path) const;
    /// The last part of the path.
    QString name(const QString& path) const;
    /// Bytes; 0 if there is no such file.
    double size(const QString& path) const;
    QString sizeText(double bytes) const;
    /// A name that no file has, in the folder for temporary files, which is made if need be.
    static QString temporary(const QString& suffix);
    /// Copies a file. What was under the target's name stays if that does not work out.
    bool saveCopy(const QString& source, const QUrl& target) const;
};
