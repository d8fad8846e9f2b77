#pragma once

namespace DeviceManager {

class DeviceMgr;

/// Keeps the audio models of its manager up to date: devices that come and go, ports and defaults that
/// change. All changes are made on the manager's thread.
class AudioDeviceListener
{
public:
    /// At most one listener exists at a time. `manager` must outlive it.
    explicit AudioDeviceListener(DeviceMgr* manager);
    /// No change is passed on any more once this has returned.
    ~AudioDeviceListener();
    AudioDeviceListener(const AudioDeviceListener&) = delete;
    AudioDeviceListener& operator=(const AudioDeviceListener&) = delete;
};

} // namespace DeviceManager
