#pragma once

#include "multimedia/multimedia_global.h"

#include <QtCore/QObject>
#include <QtCore/QString>

namespace DeviceManager {

/// One device, as a QML delegate reads and binds to it.
///
/// Every setter stores and emits only when the value differs. Lives on the thread of its model; see
/// `DeviceModel` for its lifetime.
class MULTIMEDIA_EXPORT DeviceInfo : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString uid READ uid WRITE setUid NOTIFY uidChanged)
    Q_PROPERTY(QString deviceName READ deviceName WRITE setDeviceName NOTIFY deviceNameChanged)
    Q_PROPERTY(QString sourceName READ sourceName WRITE setSourceName NOTIFY sourceNameChanged)
    Q_PROPERTY(int deviceId READ deviceId WRITE setDeviceId NOTIFY deviceIdChanged)
    Q_PROPERTY(QString manufacturer READ manufacturer WRITE setManufacturer NOTIFY manufacturerChanged)
    Q_PROPERTY(QString description READ description WRITE setDescription NOTIFY descriptionChanged)

public:
    explicit DeviceInfo(QObject* parent = nullptr);
    /// A copy of every field of `other`, without a parent. `other` is not null.
    explicit DeviceInfo(DeviceInfo* other);
    /// Copies every field but `sourceName`.
    DeviceInfo& operator=(const DeviceInfo& other);

    /// Whether `uid` and `deviceId` are equal; false for null.
    bool operator==(const DeviceInfo* other) const;
    /// As `operator==`, but also takes over the `sourceName` of an equal `other`: the port in use may change
    /// while the device stays the same.
    bool isEqual(const DeviceInfo* other);

    /// What the system addresses the device by, stable as long as the device exists.
    QString uid() const { return m_uid; }
    /// What selects the device for use; for audio the name of the same device in `QAudioDeviceInfo`.
    QString deviceName() const { return m_deviceName; }
    /// The port in use, such as the headphone socket, in words.
    QString sourceName() const { return m_sourceName; }
    int deviceId() const { return m_deviceId; }
    QString manufacturer() const { return m_manufacturer; }
    /// What a person calls the device.
    QString description() const { return m_description; }

public Q_SLOTS:
    void setUid(const QString& uid);
    void setDeviceName(const QString& deviceName);
    void setSourceName(const QString& sourceName);
    void setDeviceId(int deviceId);
    void setManufacturer(const QString& manufacturer);
    void setDescription(const QString& description);

Q_SIGNALS:
    void uidChanged(QString uid);
    void deviceNameChanged(QString deviceName);
    void sourceNameChanged(QString sourceName);
    void deviceIdChanged(int deviceId);
    void manufacturerChanged(QString manufacturer);
    void descriptionChanged(QString description);

private:
    QString m_uid;
    QString m_deviceName;
    QString m_sourceName;
    int m_deviceId = 0;
    QString m_manufacturer;
    QString m_description;
};

} // namespace DeviceManager
