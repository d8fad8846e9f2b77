#include "multimedia/devicemgr/devicemgr.h"

#include "multimedia/devicemgr/audiodevice.h"
#include "multimedia/devicemgr/audiodeviceinfo.h"
#include "multimedia/devicemgr/audiodevicelistener.h"
#include "multimedia/devicemgr/cameradevicelistener.h"
#include "multimedia/devicemgr/devicetypedefine.h"
#include "multimedia/devicemgr/permission.h"
#include "multimedia/devicemgr/screeninfo.h"

#include <QtCore/QThread>
#include <QtGui/QGuiApplication>
#include <QtMultimedia/QCameraInfo>

#include <utility>

namespace DeviceManager {

namespace {
QList<DeviceInfo*> entries(const QList<AudioDevice>& devices, QObject* parent)
{
    QList<DeviceInfo*> list;
    for (const AudioDevice& device : devices) {
        auto* info = new AudioDeviceInfo(parent);
        info->setUid(device.UID);
        info->setDeviceName(device.name);
        info->setDeviceId(device.deviceID);
        info->setManufacturer(device.manufacturer);
        info->setInputChannelCount(device.inputChannelCount);
        info->setOutputChannelCount(device.outputChannelCount);
        info->setDescription(device.description);
        info->setSourceName(device.sourceName);
        list.append(info);
    }
    return list;
}

void load(DeviceModel* model, const QList<AudioDevice>& devices)
{
    const auto type = static_cast<DeviceTypeDefine::DeviceType>(model->deviceType());
    const auto current = AudioDevice::currentDevice(type);
    model->update(entries(devices, model), current ? current->name : QString());
}
} // namespace

std::atomic<DeviceMgr*> DeviceMgr::s_deviceMgr = nullptr;
bool DeviceMgr::s_released = false;
QMutex DeviceMgr::s_mutex;

DeviceMgr* DeviceMgr::instance()
{
    if (!s_deviceMgr) {
        const QMutexLocker locker(&s_mutex);
        if (!s_deviceMgr) {
            auto* manager = new DeviceMgr(nullptr);
            s_deviceMgr = manager;
            const QCoreApplication* application = QCoreApplication::instance();
            if (application && manager->thread() != application->thread())
                manager->moveToThread(application->thread());
            QMetaObject::invokeMethod(manager, &DeviceMgr::init);
        }
    }
    return s_deviceMgr;
}

void DeviceMgr::release()
{
    const QMutexLocker locker(&s_mutex);
    if (!s_deviceMgr || std::exchange(s_released, true))
        return;
    s_deviceMgr.load()->deleteLater();
}

bool DeviceMgr::observeUnlessReleased(AudioDeviceChangedObserver* observer)
{
    DeviceMgr* const manager = instance();
    // Whoever releases it from here on has it deleted later.
    const QMutexLocker locker(&s_mutex);
    if (s_released || !manager)
        return false;
    manager->registerAudioDeviceChangedObserver(observer);
    return true;
}

DeviceMgr::DeviceMgr(QObject* parent)
    : QObject(parent)
    , m_audioInputModel(new DeviceModel(DeviceTypeDefine::AudioInput, this))
    , m_audioOutputModel(new DeviceModel(DeviceTypeDefine::AudioOutput, this))
    , m_cameraModel(new DeviceModel(DeviceTypeDefine::Camera, this))
    , m_screenModel(new DeviceModel(DeviceTypeDefine::Screen, this))
{
    m_audioInputModel->setDisabled(!hasAudioCapturePermission());
    connect(m_audioOutputModel, &DeviceModel::defaultDeviceChanged, this,
            &DeviceMgr::notifyAudioDeviceChangedObserver);
    m_cameraModel->setDisabled(true);
}

DeviceMgr::~DeviceMgr() = default;

void DeviceMgr::init()
{
    m_audioListener = std::make_unique<AudioDeviceListener>(this);
    m_cameraListener = std::make_unique<CameraDeviceListener>(this);
    refreshModel();
    initScreenDeviceList();
}

void DeviceMgr::initScreenDeviceList()
{
    auto* application = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
    if (!application)
        return;
    QList<DeviceInfo*> list;
    for (QScreen* screen : QGuiApplication::screens())
        list.append(new ScreenInfo(screen, m_screenModel));
    m_screenModel->update(list, QString());
    connect(application, &QGuiApplication::screenAdded, this, &DeviceMgr::screenAdd);
    connect(application, &QGuiApplication::screenRemoved, this, &DeviceMgr::screenRemove);
}

void DeviceMgr::registerAudioDeviceChangedObserver(AudioDeviceChangedObserver* observer)
{
    const QMutexLocker locker(&m_observersMutex);
    m_observers.append(observer);
}

void DeviceMgr::unregisterAudioDeviceChangedObserver(AudioDeviceChangedObserver* observer)
{
    const QMutexLocker locker(&m_observersMutex);
    m_observers.removeAll(observer);
}

void DeviceMgr::notifyAudioDeviceChangedObserver()
{
    const QMutexLocker locker(&m_observersMutex);
    const QList<AudioDeviceChangedObserver*> observers = m_observers;
    for (AudioDeviceChangedObserver* observer : observers) {
        if (m_observers.contains(observer)) // an earlier one may have taken it out
            observer->handleDeviceChanged();
    }
}

void DeviceMgr::loadAudios()
{
    load(m_audioOutputModel, AudioDevice::outputDevices());
    load(m_audioInputModel, AudioDevice::inputDevices());
}

void DeviceMgr::loadCamera()
{
    QList<DeviceInfo*> list;
    const QList<QCameraInfo> cameras = QCameraInfo::availableCameras();
    for (const QCameraInfo& camera : cameras) {
        auto* info = new DeviceInfo(m_cameraModel);
        info->setDeviceName(camera.description());
        info->setUid(camera.description());
        list.append(info);
    }
    m_cameraModel->update(list, QCameraInfo::defaultCamera().description());
}

void DeviceMgr::refreshModel()
{
    loadAudios();
    loadCamera();
}

bool DeviceMgr::hasAudioCapturePermission()
{
    return multimedia::checkCapturePermission(false);
}

bool DeviceMgr::hasVideoCapturePermission()
{
    return multimedia::checkCapturePermission(true);
}

bool DeviceMgr::requestAudioCapturePermission()
{
    return multimedia::requestAVCaptureDevicePermission(false);
}

bool DeviceMgr::requestVideoCapturePermission()
{
    return multimedia::requestAVCaptureDevicePermission(true);
}

bool DeviceMgr::hasScreenCapturePermission()
{
    return multimedia::checkScreenCapturePermission();
}

void DeviceMgr::requestScreenCapturePermission()
{
    multimedia::requestScreenCapturePermission();
}

void DeviceMgr::screenAdd(QScreen* screen)
{
    m_screenModel->append(new ScreenInfo(screen, m_screenModel));
}

void DeviceMgr::screenRemove(QScreen* screen)
{
    m_screenModel->remove(screen->name());
}

} // namespace DeviceManager
