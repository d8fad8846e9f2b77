#pragma once

#include "multimedia/gifhandler/gifhandler.h"

#include <QtCore/QFutureWatcher>
#include <QtCore/QObject>
#include <QtCore/QSize>
#include <QtCore/QString>

/// Makes GIFs smaller, or videos of them, for the host's QML, one at a time. Results stand in the temporary
/// folder.
class GifPage : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool busy READ busy NOTIFY busyChanged)

public:
    explicit GifPage(QObject* parent = nullptr);
    ~GifPage() override;

    bool busy() const { return !target.isEmpty(); }

public Q_SLOTS:
    /// Width and height of a GIF; empty for what is none.
    QSize size(const QString& file) const;
    /// Ends in `finished`.
    /// @param to  in pixels
    void compress(const QString& file, const QSize& to);
    /// Ends in `finished`.
    void toVideo(const QString& file);
    void cancel();

Q_SIGNALS:
    void busyChanged();
    /// @param file  path of the result; empty when it was cancelled or could not be made
    void finished(QString file, bool cancelled);

private:
    void begin(const QString& suffix);
    void end(bool good);

    GifHandler handler;
    QFutureWatcher<bool> transcoding; ///< on the global thread pool
    QString target;                   ///< of the work under way; empty for none
    bool cancelled = false;
};
