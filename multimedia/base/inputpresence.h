#pragma once

#include <QtCore/QDeadlineTimer>
#include <QtMultimedia/QAudioDeviceInfo>

namespace multimedia {

/// Whether the audio input that was opened is still there: when it vanishes the sound server goes on with
/// another one, in a room that nobody chose.
///
/// On one thread at a time. The devices are asked for by their lists, which Qt guards against the sound
/// server's thread; what it tells of a single device (its preferred format, say) it does not.
class InputPresence
{
public:
    InputPresence() = default;
    /// A device that is not in the lists to begin with counts as there.
    explicit InputPresence(const QAudioDeviceInfo& device);

    /// Cheap: the lists are looked at some 20 times a second, and for a fiftieth of the time at most.
    bool isThere();

private:
    bool isListed() const;

    QAudioDeviceInfo device;
    bool can_vanish = false;
    bool is_there = true;
    QDeadlineTimer next_look;
};

} // namespace multimedia
