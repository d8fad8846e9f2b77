#pragma once

#include <QtCore/QObject>
#include <QtCore/QString>

/// Clips videos for the host's QML. The clip stands in the temporary folder.
class VideoPage : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

public Q_SLOTS:
    /// Times in milliseconds. Ends in `clipped`.
    void clip(const QString& file, double start_ms, double end_ms);

Q_SIGNALS:
    /// @param file  path of the clip; empty when it could not be made
    void clipped(QString file);
};
