#include "examples/host/screenpage.h"

#include <QtGui/QGuiApplication>
#include <QtGui/QScreen>

using multimedia::ScreenRecord;

ScreenPage::ScreenPage(QObject* parent)
    : QObject(parent)
{
    connect(&recorder, &ScreenRecord::isGifChanged, this, &ScreenPage::gifChanged);
    connect(&recorder, &ScreenRecord::isMuteChanged, this, &ScreenPage::muteChanged);
    connect(&recorder, &ScreenRecord::fileChanged, this, &ScreenPage::fileChanged);
    connect(&recorder, &ScreenRecord::stateChanged, this, &ScreenPage::stateChanged);
    connect(qGuiApp, &QGuiApplication::screenAdded, this, &ScreenPage::screensChanged);
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, &ScreenPage::screensChanged);
}

QStringList ScreenPage::screens() const
{
    QStringList names;
    for (const QScreen* screen : QGuiApplication::screens())
        names += QStringLiteral("%1 (%2 x %3)")
                     .arg(screen->name())
                     .arg(screen->size().width())
                     .arg(screen->size().height());
    return names;
}

void ScreenPage::setScreenIndex(int screen_index)
{
    if (index == screen_index)
        return;
    index = screen_index;
    Q_EMIT screenIndexChanged();
}

void ScreenPage::setGif(bool gif)
{
    recorder.setIsGif(gif);
}

void ScreenPage::setMute(bool mute)
{
    recorder.setIsMute(mute);
}

QUrl ScreenPage::file() const
{
    return QUrl::fromLocalFile(recorder.getFile());
}

void ScreenPage::start()
{
    QScreen* screen = QGuiApplication::screens().value(index, QGuiApplication::primaryScreen());
    if (!screen)
        return;
    recorder.setScreen(screen);
    recorder.setRect({QPoint(0, 0), screen->size()});
    recorder.start();
    Q_EMIT stateChanged();
}

void ScreenPage::pause()
{
    recorder.pause();
    Q_EMIT stateChanged();
}

void ScreenPage::stop()
{
    recorder.stop();
    Q_EMIT stateChanged();
}
