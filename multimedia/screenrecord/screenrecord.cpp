#include "multimedia/screenrecord/screenrecord.h"

#include "multimedia/base/warning.h"
#include "multimedia/devicemgr/permission.h"
#include "multimedia/screenrecord/screenrecordprivate.h"

#include <QtCore/QLoggingCategory>

#include <utility>

namespace multimedia {

namespace {

/// Stores `value` in `field`, unless it is there already or a change is under way. True when it was stored.
template<typename Value>
bool store(ScreenRecordPrivate& d, Value ScreenRecordPrivate::*field, const Value& value, const char* name)
{
    {
        std::lock_guard lock(d.mutex);
        if (d.state != ScreenRecord::Processing) {
            if (d.*field == value)
                return false;
            d.*field = value;
            return true;
        }
    }
    warning(name, "is not valid");
    return false;
}

template<typename Value>
Value load(const ScreenRecordPrivate& d, Value ScreenRecordPrivate::*field)
{
    std::lock_guard lock(d.mutex);
    return d.*field;
}

} // namespace

ScreenRecord::ScreenRecord(QObject* parent)
    : QObject(parent)
    , d(std::make_unique<ScreenRecordPrivate>(this))
{
    qRegisterMetaType<multimedia::ScreenRecord::State>();
}

ScreenRecord::~ScreenRecord()
{
    stop();
}

ScreenRecord::State ScreenRecord::getState() const
{
    return load(*d, &ScreenRecordPrivate::state);
}

bool ScreenRecord::getIsGif() const
{
    return load(*d, &ScreenRecordPrivate::is_gif);
}

bool ScreenRecord::getIsMute() const
{
    return load(*d, &ScreenRecordPrivate::is_mute);
}

QScreen* ScreenRecord::getScreen() const
{
    return load(*d, &ScreenRecordPrivate::screen);
}

QRect ScreenRecord::getRect() const
{
    return load(*d, &ScreenRecordPrivate::rect);
}

QString ScreenRecord::getFile() const
{
    return load(*d, &ScreenRecordPrivate::file);
}

void ScreenRecord::setIsGif(bool is_gif)
{
    if (store(*d, &ScreenRecordPrivate::is_gif, is_gif, "setIsGif"))
        Q_EMIT isGifChanged(is_gif);
}

void ScreenRecord::setIsMute(bool is_mute)
{
    if (store(*d, &ScreenRecordPrivate::is_mute, is_mute, "setIsMute"))
        Q_EMIT isMuteChanged(is_mute);
}

void ScreenRecord::setScreen(QScreen* screen)
{
    if (!store(*d, &ScreenRecordPrivate::screen, screen, "setScreen"))
        return;
    qCDebug(MultimediaCategoryLogging, "current screen index: %d", getVideoIndex(screen));
    Q_EMIT screenChanged(screen);
}

void ScreenRecord::setRect(QRect rect)
{
    if (store(*d, &ScreenRecordPrivate::rect, rect, "setRect"))
        Q_EMIT rectChanged(rect);
}

void ScreenRecord::start()
{
    d->changeState(Running);
}

void ScreenRecord::pause()
{
    d->changeState(Pausing);
}

void ScreenRecord::stop()
{
    d->changeState(Waiting);
}

void ScreenRecord::customEvent(QEvent* event)
{
    State state = Waiting;
    std::vector<QString> ended;
    {
        std::lock_guard lock(d->mutex); // it was posted under it
        if (event->type() != ScreenRecordPrivate::kStateChangeEventType)
            return;
        state = d->state;
        ended = std::exchange(d->ended, {});
    }
    for (const QString& file : ended)
        Q_EMIT fileChanged(file);
    Q_EMIT stateChanged(state);
}

} // namespace multimedia
