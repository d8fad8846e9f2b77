#include "examples/host/screenpage.h"

#include <QtCore/QFileInfo>
#include <QtGui/QGuiApplication>
#include <QtGui/QScreen>

using multimedia::ScreenRecord;

ScreenPage::ScreenPage(QObject* parent)
    : QObject(parent)
{
    connect(&recorder, &ScreenRecord::isGifChanged, this, &ScreenPage::gifChanged);
    connect(&recorder, &ScreenRecord::isMuteChanged, this, &ScreenPage::muteChanged);
    connect(&recorder, &ScreenRecord::fileChanged, this, &ScreenPage::finish);
    connect(&recorder, &ScreenRecord::stateChanged, this, &ScreenPage::stateChanged);
    connect(qGuiApp, &QGuiApplication::screenAdded, this, &ScreenPage::onScreensChanged);
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, &ScreenPage::onScreensChanged);
}

QStringList ScreenPage::screens() const
{
    QStringList names;
    for (const QScreen* screen : QGuiApplication::screens())
        names +=
            tr("%1 (%2 × %3)").arg(screen->name()).arg(screen->size().width()).arg(screen->size().height());
    return names;
}

void ScreenPage::setScreenIndex(int screen_index)
{
    if (index == screen_index)
        return;
    index = screen_index;
    Q_EMIT screenIndexChanged();
}

QSize ScreenPage::screenSize() const
{
    const QScreen* screen = QGuiApplication::screens().value(index);
    return screen ? screen->size() : QSize();
}

void ScreenPage::setGif(bool gif)
{
    recorder.setIsGif(gif);
}

void ScreenPage::setMute(bool mute)
{
    recorder.setIsMute(mute);
}

void ScreenPage::start(const QRectF& part)
{
    if (waiting()) {
        QScreen* screen = QGuiApplication::screens().value(index);
        if (!screen) {
            Q_EMIT recorded({});
            return;
        }
        recorder.setScreen(screen);
        recorder.setRect(pixels(part));
    }
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

QRect ScreenPage::pixels(const QRectF& part) const
{
    const QSize size = screenSize();
    const QRect whole(QPoint(), size);
    const QRect asked(qRound(part.x() * size.width()), qRound(part.y() * size.height()),
                      qRound(part.width() * size.width()), qRound(part.height() * size.height()));
    QRect inside = asked & whole;
    inside.setSize({inside.width() & ~1, inside.height() & ~1});
    return inside;
}

void ScreenPage::onScreensChanged()
{
    setScreenIndex(qBound(0, index, int(QGuiApplication::screens().size()) - 1));
    Q_EMIT screensChanged();
    Q_EMIT screenIndexChanged();
}

void ScreenPage::finish(const QString& file)
{
    Q_EMIT recorded(QFileInfo(file).size() > 0 ? file : QString());
}
