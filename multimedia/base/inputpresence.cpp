#include "multimedia/base/inputpresence.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QList>

#include <algorithm>

namespace multimedia {

namespace {
constexpr qint64 kInterval_ms = 50;
constexpr qint64 kShare = 50;
} // namespace

InputPresence::InputPresence(const QAudioDeviceInfo& device)
    : device(device)
    , can_vanish(isListed())
{}

bool InputPresence::isThere()
{
    if (!can_vanish || !is_there || !next_look.hasExpired())
        return is_there;
    QElapsedTimer look;
    look.start();
    is_there = isListed();
    next_look.setRemainingTime(std::max(kInterval_ms, kShare * look.elapsed()));
    return is_there;
}

/// The default device is told by one sound system, the list by all of them.
bool InputPresence::isListed() const
{
    return QAudioDeviceInfo::defaultInputDevice() == device ||
           QAudioDeviceInfo::availableDevices(QAudio::AudioInput).contains(device);
}

} // namespace multimedia
