#include "multimedia/devicemgr/audiodevice.h"
#include "multimedia/devicemgr_linux/pulseserver.h"

namespace DeviceManager {

namespace {
std::optional<AudioDevice> find(const QList<AudioDevice>& devices, const QString& name)
{
    for (const AudioDevice& device : devices) {
        if (device.name == name)
            return device;
    }
    return std::nullopt;
}
} // namespace

QList<AudioDevice> AudioDevice::inputDevices()
{
    return PulseServer::instance().picture().inputs;
}

QList<AudioDevice> AudioDevice::outputDevices()
{
    return PulseServer::instance().picture().outputs;
}

std::optional<AudioDevice> AudioDevice::currentDevice(DeviceTypeDefine::DeviceType type)
{
    const PulseServer::Picture picture = PulseServer::instance().picture();
    switch (type) {
    case DeviceTypeDefine::AudioInput:
        return find(picture.inputs, picture.default_input);
    case DeviceTypeDefine::AudioOutput:
        return find(picture.outputs, picture.default_output);
    default:
        return std::nullopt;
    }
}

} // namespace DeviceManager
