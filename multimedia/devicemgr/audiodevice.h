#pragma once

#include "multimedia/devicemgr/devicetypedefine.h"

#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

namespace DeviceManager {

/// What the system knows about one microphone or loudspeaker.
///
/// The functions answer from a picture of the sound server that is kept up to date in the background: they
/// never wait for it, and a server that is away has no devices. Any thread.
struct AudioDevice
{
    QString UID;
    QString name; ///< as `QAudioDeviceInfo::deviceName()` has it
    QString manufacturer;
    QString sourceName; ///< the active port; the description where a device has no ports
    QString description;
    int deviceID = 0;
    int inputChannelCount = 0;
    int outputChannelCount = 0;

    static QList<AudioDevice> inputDevices();
    static QList<AudioDevice> outputDevices();
    /// Nothing for a kind that is not audio, and where the default is not among the listed devices.
    static std::optional<AudioDevice> currentDevice(DeviceTypeDefine::DeviceType type);
};

} // namespace DeviceManager
