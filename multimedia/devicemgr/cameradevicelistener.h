#pragma once

#include <memory>

namespace DeviceManager {

class DeviceMgr;

/// Has its manager reload the cameras whenever one is plugged in or out.
///
/// Belongs to the manager's thread, which must run an event loop. A system that cannot be listened to is
/// logged once; the list is then not refreshed.
class CameraDeviceListener
{
public:
    explicit CameraDeviceListener(DeviceMgr* manager);
    ~CameraDeviceListener();
    CameraDeviceListener(const CameraDeviceListener&) = delete;
    CameraDeviceListener& operator=(const CameraDeviceListener&) = delete;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace DeviceManager
