#pragma once

#include "multimedia/screenrecord/screenrecord.h"

#include <QtCore/QObject>
#include <QtCore/QRect>
#include <QtCore/QSize>
#include <QtCore/QStringList>

/// The screen recorder as the host's QML sees it.
class ScreenPage : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QStringList screens READ screens NOTIFY screensChanged)
    Q_PROPERTY(int screenIndex READ screenIndex WRITE setScreenIndex NOTIFY screenIndexChanged)
    Q_PROPERTY(QSize screenSize READ screenSize NOTIFY screenIndexChanged)
    Q_PROPERTY(bool gif READ gif WRITE setGif NOTIFY gifChanged)
    Q_PROPERTY(bool mute READ mute WRITE setMute NOTIFY muteChanged)
    Q_PROPERTY(bool waiting READ waiting NOTIFY stateChanged)
    Q_PROPERTY(bool running READ running NOTIFY stateChanged)
    Q_PROPERTY(bool busy READ busy NOTIFY stateChanged)

public:
    explicit ScreenPage(QObject* parent = nullptr);

    QStringList screens() const;
    int screenIndex() const { return index; }
    void setScreenIndex(int screen_index);
    /// Of the chosen screen, in its logical pixels.
    QSize screenSize() const;
    bool gif() const { return recorder.getIsGif(); }
    void setGif(bool gif);
    bool mute() const { return recorder.getIsMute(); }
    void setMute(bool mute);
    bool waiting() const { return recorder.getState() == multimedia::ScreenRecord::Waiting; }
    bool running() const { return recorder.getState() == multimedia::ScreenRecord::Running; }
    bool busy() const { return recorder.getState() == multimedia::ScreenRecord::Processing; }

public Q_SLOTS:
    /// Begins a recording, or goes on with a paused one.
    /// @param part  of the screen, in fractions of its size
    void start(const QRectF& part);
    void pause();
    void stop();
    /// The pixels that `part` stands for: even sides, and inside the screen.
    QRect pixels(const QRectF& part) const;

Q_SIGNALS:
    void screensChanged();
    void screenIndexChanged();
    void gifChanged();
    void muteChanged();
    void stateChanged();
    /// @param file  path of the recording; empty when there is none
    void recorded(QString file);

private:
    void onScreensChanged();
    void finish(const QString& file);

    multimedia::ScreenRecord recorder;
    int index = 0;
};
