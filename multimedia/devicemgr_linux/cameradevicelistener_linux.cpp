#include "multimedia/base/warning.h"
#include "multimedia/devicemgr/cameradevicelistener.h"
#include "multimedia/devicemgr/devicemgr.h"

#include <QtCore/QLoggingCategory>
#include <QtCore/QSocketNotifier>

#include <libudev.h>

namespace DeviceManager {

namespace {
struct UdevDeleter
{
    void operator()(udev* context) const { udev_unref(context); }
    void operator()(udev_monitor* monitor) const { udev_monitor_unref(monitor); }
    void operator()(udev_device* device) const { udev_device_unref(device); }
};
} // namespace

struct CameraDeviceListener::Private
{
    /// Takes every notice that waits, so that a camera of several nodes is looked up once.
    void handleNotices(DeviceMgr* manager) const
    {
        bool changed = false;
        while (std::unique_ptr<udev_device, UdevDeleter> device{udev_monitor_receive_device(monitor.get())})
            changed = true;
        if (changed)
            manager->loadCamera();
    }

    std::unique_ptr<udev, UdevDeleter> context{udev_new()};
    std::unique_ptr<udev_monitor, UdevDeleter> monitor;
    std::unique_ptr<QSocketNotifier> notifier;
};

CameraDeviceListener::CameraDeviceListener(DeviceMgr* manager)
    : d(std::make_unique<Private>())
{
    if (d->context)
        d->monitor.reset(udev_monitor_new_from_netlink(d->context.get(), "udev"));
    udev_monitor* monitor = d->monitor.get();
    if (!monitor || udev_monitor_filter_add_match_subsystem_devtype(monitor, "video4linux", nullptr) < 0 ||
        udev_monitor_enable_receiving(monitor) < 0) {
        qCDebug(MultimediaCategoryLogging, "listen camera change error");
        return;
    }
    d->notifier = std::make_unique<QSocketNotifier>(udev_monitor_get_fd(monitor), QSocketNotifier::Read);
    QObject::connect(d->notifier.get(), &QSocketNotifier::activated, manager,
                     [this, manager] { d->handleNotices(manager); });
}

CameraDeviceListener::~CameraDeviceListener() = default;

} // namespace DeviceManager
