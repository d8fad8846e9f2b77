#pragma once

#include "multimedia/devicemgr/audiodevicechangedobserver.h"
#include "multimedia/devicemgr/devicemodel.h"
#include "multimedia/multimedia_global.h"

#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtGui/QScreen>

#include <atomic>
#include <memory>

namespace DeviceManager {

class AudioDeviceListener;
class CameraDeviceListener;

/// The live lists of microphones, loudspeakers, cameras and screens.
///
/// The lists fill on their own and follow the system: the audio lists as soon as the sound server has
/// answered, and they empty and fill again when it goes and comes back. Choosing a device for use is not
/// done here; `DeviceModel::currentDevice` only keeps the choice.
///
/// Lives on the main thread wherever it was made, and all changes of its models and calls of observers
/// happen there; other threads call only what says so.
class MULTIMEDIA_EXPORT DeviceMgr : public QObject
{
    Q_OBJECT
    Q_PROPERTY(DeviceManager::DeviceModel* audioInputModel READ audioInputModel CONSTANT)
    Q_PROPERTY(DeviceManager::DeviceModel* audioOutputModel READ audioOutputModel CONSTANT)
    Q_PROPERTY(DeviceManager::DeviceModel* cameraModel READ cameraModel CONSTANT)
    Q_PROPERTY(DeviceManager::DeviceModel* screenModel READ screenModel CONSTANT)

public:
    /// The one object, made on first use. Any thread.
    static DeviceMgr* instance();
    /// Hands the object to its event loop for destruction. For shutdown only: the object is not made again,
    /// and `instance` answers with the old pointer.
    static void release();
    /// Registers `observer` with the one object. False, and nothing to observe, once that was released. Any
    /// thread.
    static bool observeUnlessReleased(AudioDeviceChangedObserver* observer);
    ~DeviceMgr() override;

    DeviceModel* audioInputModel() const { return m_audioInputModel; }
    DeviceModel* audioOutputModel() const { return m_audioOutputModel; }
    DeviceModel* cameraModel() const { return m_cameraModel; }
    DeviceModel* screenModel() const { return m_screenModel; }

    /// `observer` hears of every change of the default output from now on. Not owned. Any thread.
    void registerAudioDeviceChangedObserver(AudioDeviceChangedObserver* observer);
    /// Once this has returned `observer` is not called any more. Any thread.
    void unregisterAudioDeviceChangedObserver(AudioDeviceChangedObserver* observer);
    void notifyAudioDeviceChangedObserver();

public Q_SLOTS:
    void loadAudios();
    void loadCamera();
    void refreshModel();
    bool hasAudioCapturePermission();
    bool hasVideoCapturePermission();
    bool requestAudioCapturePermission();
    bool requestVideoCapturePermission();
    bool hasScreenCapturePermission();
    void requestScreenCapturePermission();
    void screenAdd(QScreen* screen);
    void screenRemove(QScreen* screen);

private:
    explicit DeviceMgr(QObject* parent);
    void init();
    void initScreenDeviceList();

    DeviceModel* m_audioInputModel;
    DeviceModel* m_audioOutputModel;
    DeviceModel* m_cameraModel;
    DeviceModel* m_screenModel;
    std::unique_ptr<AudioDeviceListener> m_audioListener;
    std::unique_ptr<CameraDeviceListener> m_cameraListener;
    QRecursiveMutex m_observersMutex;
    QList<AudioDeviceChangedObserver*> m_observers; ///< guarded by `m_observersMutex`, also while called

    static std::atomic<DeviceMgr*> s_deviceMgr;
    static bool s_released; ///< guarded by `s_mutex`
    static QMutex s_mutex;  ///< guards making and releasing
};

} // namespace DeviceManager
