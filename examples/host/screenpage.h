#pragma once

#include "multimedia/screenrecord/screenrecord.h"

#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QUrl>

/// The screen recorder as the host's QML sees it.
class ScreenPage : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QStringList screens READ screens NOTIFY screensChanged)
    Q_PROPERTY(int screenIndex READ screenIndex WRITE setScreenIndex NOTIFY screenIndexChanged)
    Q_PROPERTY(bool gif READ gif WRITE setGif NOTIFY gifChanged)
    Q_PROPERTY(bool mute READ mute WRITE setMute NOTIFY muteChanged)
    Q_PROPERTY(bool waiting READ waiting NOTIFY stateChanged)
    Q_PROPERTY(bool running READ running NOTIFY stateChanged)
    Q_PROPERTY(bool busy READ busy NOTIFY stateChanged)
    Q_PROPERTY(QUrl file READ file NOTIFY fileChanged)

public:
    explicit ScreenPage(QObject* parent = nullptr);

    QStringList screens() const;
    int screenIndex() const { return index; }
    void setScreenIndex(int screen_index);
    bool gif() const { return recorder.getIsGif(); }
    void setGif(bool gif);
    bool mute() const { return recorder.getIsMute(); }
    void setMute(bool mute);
    bool waiting() const { return recorder.getState() == multimedia::ScreenRecord::Waiting; }
    bool running() const { return recorder.getState() == multimedia::ScreenRecord::Running; }
    bool busy() const { return recorder.getState() == multimedia::ScreenRecord::Processing; }
    QUrl file() const;

public Q_SLOTS:
    void start();
    void pause();
    void stop();

Q_SIGNALS:
    void screensChanged();
    void screenIndexChanged();
    void gifChanged();
    void muteChanged();
    void stateChanged();
    void fileChanged();

private:
    multimedia::ScreenRecord recorder;
    int index = 0;
};
