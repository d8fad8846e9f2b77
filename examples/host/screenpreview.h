#pragma once

#include "multimedia/screenrecord/steppedgrabber.h"

#include <QtCore/QTimer>
#include <QtGui/QImage>
#include <QtQuick/QQuickPaintedItem>

/// Shows a whole screen live and small, where the desktop lets programs see it. A desktop that asks its user
/// about that does so when this begins to run.
class ScreenPreview : public QQuickPaintedItem
{
    Q_OBJECT
    /// Position of the screen in `QGuiApplication::screens()`.
    Q_PROPERTY(int screenIndex MEMBER screen_index NOTIFY changed)
    Q_PROPERTY(bool running READ running WRITE setRunning NOTIFY changed)
    Q_PROPERTY(bool hasPicture READ hasPicture NOTIFY hasPictureChanged)
    /// The desktop did not share the screen, or does so no longer.
    Q_PROPERTY(bool refused READ refused NOTIFY refusedChanged)

public:
    explicit ScreenPreview(QQuickItem* parent = nullptr);

    bool running() const { return is_wanted; }
    void setRunning(bool running);
    bool hasPicture() const { return !picture.isNull(); }
    bool refused() const { return is_refused; }
    void paint(QPainter* painter) override;

public Q_SLOTS:
    void askAgain();

Q_SIGNALS:
    void changed();
    void hasPictureChanged();
    void refusedChanged();

private:
    void advance();
    void start();
    void stop();
    void take();
    void show(const QImage& next);
    void setRefused(bool refused);

    multimedia::SteppedGrabber grabber;
    QTimer timer; ///< looks how far the grabber has come, which has no signal for it
    QImage picture;
    int screen_index = 0;
    int grabbed_index = -1; ///< what the grabber was started for; -1 when it is to stop
    bool is_wanted = false;
    bool is_refused = false;
};
