#pragma once

#include "multimedia/devicemgr/deviceinfo.h"
#include "multimedia/multimedia_global.h"

#include <QtCore/QAbstractListModel>
#include <QtCore/QList>

namespace DeviceManager {

/// The devices of one kind, as QML shows them, with the system's default and the user's choice.
///
/// There is one role, "deviceItem", which hands out the whole `DeviceInfo`; a delegate reads
/// `deviceItem.deviceName` and so on. The model owns its entries, and an entry dies at the next `update`.
///
/// `disabled` and `mirror` are kept for the front end. Main thread only. QML never destroys a model.
class MULTIMEDIA_EXPORT DeviceModel : public QAbstractListModel
{
    Q_OBJECT
    Q_PROPERTY(int count READ count NOTIFY countChanged)
    Q_PROPERTY(QString defaultDevice READ defaultDevice WRITE setDefaultDevice NOTIFY defaultDeviceChanged)
    Q_PROPERTY(QString currentDevice READ currentDevice WRITE setCurrentDevice NOTIFY currentDeviceChanged)
    Q_PROPERTY(int deviceType READ deviceType CONSTANT)
    Q_PROPERTY(bool disabled READ disabled WRITE setDisabled NOTIFY disabledChanged)
    Q_PROPERTY(bool mirror READ mirror WRITE setMirror NOTIFY mirrorChanged)

public:
    enum Role {
        DeviceItemRole = Qt::UserRole + 1, ///< `DeviceManager::DeviceInfo*`
    };

    /// @param deviceType  a `DeviceTypeDefine::DeviceType`
    explicit DeviceModel(int deviceType, QObject* parent = nullptr);
    ~DeviceModel() override;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    int count() const { return m_devices.size(); }
    /// `deviceName` of the system's default; empty for none.
    QString defaultDevice() const { return m_defaultDevice; }
    /// `deviceName` of the device in use.
    QString currentDevice() const { return m_currentDevice; }
    int deviceType() const { return m_deviceType; }
    bool disabled() const { return m_disabled; }
    bool mirror() const { return m_mirror; }

    /// Replaces all entries; takes ownership of `list` and destroys the old ones.
    ///
    /// `currentDevice` stays if a device of that name is in the new list, and falls back to `defaultDevice`
    /// otherwise.
    void update(const QList<DeviceInfo*>& list, const QString& defaultDevice);
    /// Takes ownership of `info`.
    void append(DeviceInfo* info);
    /// Destroys the first entry of this `uid`, if there is one.
    void remove(const QString& uid);
    /// Lets go of all entries without destroying them.
    void clear();

    void setDefaultDevice(const QString& defaultDevice);
    void setCurrentDevice(const QString& currentDevice);

public Q_SLOTS:
    void setDisabled(bool disabled);
    void setMirror(bool mirror);

Q_SIGNALS:
    void countChanged(int count);
    void defaultDeviceChanged(QString defaultDevice);
    void currentDeviceChanged(QString currentDevice);
    /// Never emitted: the type is constant.
    void deviceTypeChanged(int deviceType);
    void disabledChanged(bool disabled);
    void mirrorChanged(bool mirror);

private:
    const QHash<int, QByteArray> m_roleNames;
    QList<DeviceInfo*> m_devices;
    QString m_defaultDevice;
    QString m_currentDevice;
    const int m_deviceType;
    bool m_disabled = false;
    bool m_mirror = true;
};

} // namespace DeviceManager
