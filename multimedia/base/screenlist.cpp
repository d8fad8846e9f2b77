#include "multimedia/base/screenlist.h"

#include <QtGui/QGuiApplication>
#include <QtGui/QScreen>

#include <algorithm>

namespace multimedia {

ScreenList& ScreenList::instance()
{
    static ScreenList list;
    return list;
}

ScreenList::ScreenList()
{
    if (!qGuiApp)
        return;
    connect(qGuiApp, &QGuiApplication::screenAdded, this, &ScreenList::watch, Qt::DirectConnection);
    connect(
        qGuiApp, &QGuiApplication::screenRemoved, this, [this](QScreen* removed) { update(removed); },
        Qt::DirectConnection);
    connect(
        qGuiApp, &QGuiApplication::primaryScreenChanged, this, [this] { update(); }, Qt::DirectConnection);
    for (QScreen* screen : QGuiApplication::screens())
        watch(screen);
}

void ScreenList::watch(QScreen* screen)
{
    connect(
        screen, &QScreen::geometryChanged, this, [this] { update(); }, Qt::DirectConnection);
    connect(
        screen, &QScreen::logicalDotsPerInchChanged, this, [this] { update(); }, Qt::DirectConnection);
    update();
}

void ScreenList::update(const QScreen* removed)
{
    std::vector<Entry> made;
    for (const QScreen* screen : QGuiApplication::screens()) {
        if (screen == removed)
            continue;
        // Qt scales the size of a screen by its pixel ratio and rounds it, but leaves its corner where the
        // server has it. What is cut off here keeps the rectangle on the screen.
        const double ratio = screen->devicePixelRatio();
        const QRect geometry = screen->geometry();
        made.push_back(
            {screen,
             {geometry.topLeft(), QSize(int(geometry.width() * ratio), int(geometry.height() * ratio))},
             {screen->name(), geometry, ratio}});
    }
    std::lock_guard lock(mutex);
    entries = std::move(made);
}

int ScreenList::indexOf(const QScreen* screen) const
{
    std::lock_guard lock(mutex);
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [screen](const Entry& entry) { return entry.screen == screen; });
    return found == entries.end() ? -1 : int(found - entries.begin());
}

QRect ScreenList::devicePixels(int index) const
{
    std::lock_guard lock(mutex);
    return index >= 0 && index < int(entries.size()) ? entries[size_t(index)].device_pixels : QRect();
}

ScreenList::Screen ScreenList::screen(int index) const
{
    std::lock_guard lock(mutex);
    return index >= 0 && index < int(entries.size()) ? entries[size_t(index)].facts : Screen();
}

} // namespace multimedia
