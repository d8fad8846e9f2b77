#pragma once

#include "multimedia/multimedia_global.h"

namespace DeviceManager {

/// Hears of every change of the default output device; see `DeviceMgr`.
class MULTIMEDIA_EXPORT AudioDeviceChangedObserver
{
public:
    AudioDeviceChangedObserver() = default;
    virtual ~AudioDeviceChangedObserver() = default;
    AudioDeviceChangedObserver(const AudioDeviceChangedObserver&) = delete;
    AudioDeviceChangedObserver& operator=(const AudioDeviceChangedObserver&) = delete;

    /// Called on the device manager's thread; must not block.
    virtual void handleDeviceChanged() = 0;
};

} // namespace DeviceManager
