#pragma once

#include "quillon/editfilefilter.h"

#include <QtCore/QObject>
#include <QtCore/QString>

/// Clips videos for the host's QML, one at a time. The clip stands in the temporary folder.
class VideoPage : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)

public:
    using QObject::QObject;

    bool busy() const { return !file_id.isEmpty(); }

public Q_SLOTS:
    /// Times in milliseconds. Ends in `clipped`.
    void clip(const QString& file, double start_ms, double end_ms);
    void cancel();
    /// What people call a codec of FFmpeg's.
    QString codecName(int codec) const;

Q_SIGNALS:
    void busyChanged();
    /// @param file  path of the clip; empty when it was cancelled or could not be made
    void clipped(QString file, bool cancelled);

private:
    void finish(int code, const QString& file);

    QString file_id; ///< of the clip under way; empty for none
};
