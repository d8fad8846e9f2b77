#include "multimedia/devicemgr/audiodevice.h"
#include "multimedia/devicemgr/audiodevicelistener.h"
#include "multimedia/devicemgr/devicemgr.h"
#include "multimedia/devicemgr_linux/pulseserver.h"

#include <QtCore/QMetaObject>

namespace DeviceManager {

namespace {
void updateDefault(DeviceModel* model)
{
    const auto type = static_cast<DeviceTypeDefine::DeviceType>(model->deviceType());
    const auto device = AudioDevice::currentDevice(type);
    model->setDefaultDevice(device ? device->name : QString());
}

void update(DeviceMgr* manager, PulseServer::Change change)
{
    if (change.devices) { // sets the defaults, too
        manager->loadAudios();
        return;
    }
    if (change.default_output)
        updateDefault(manager->audioOutputModel());
    if (change.default_input)
        updateDefault(manager->audioInputModel());
}
} // namespace

AudioDeviceListener::AudioDeviceListener(DeviceMgr* manager)
{
    PulseServer::instance().setChangeHandler([manager](PulseServer::Change change) {
        QMetaObject::invokeMethod(
            manager, [manager, change] { update(manager, change); }, Qt::QueuedConnection);
    });
}

AudioDeviceListener::~AudioDeviceListener()
{
    PulseServer::instance().setChangeHandler({});
}

} // namespace DeviceManager
