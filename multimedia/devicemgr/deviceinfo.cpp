#include "multimedia/devicemgr/deviceinfo.h"

namespace DeviceManager {

DeviceInfo::DeviceInfo(QObject* parent)
    : QObject(parent)
{}

DeviceInfo::DeviceInfo(DeviceInfo* other)
{
    *this = *other;
    m_sourceName = other->m_sourceName;
}

DeviceInfo& DeviceInfo::operator=(const DeviceInfo& other)
{
    if (this == &other)
        return *this;
    setUid(other.m_uid);
    setDeviceName(other.m_deviceName);
    setDeviceId(other.m_deviceId);
    setManufacturer(other.m_manufacturer);
    setDescription(other.m_description);
    return *this;
}

bool DeviceInfo::operator==(const DeviceInfo* other) const
{
    return other && m_uid == other->m_uid && m_deviceId == other->m_deviceId;
}

bool DeviceInfo::isEqual(const DeviceInfo* other)
{
    if (!(*this == other))
        return false;
    setSourceName(other->m_sourceName);
    return true;
}

void DeviceInfo::setUid(const QString& uid)
{
    if (m_uid == uid)
        return;
    m_uid = uid;
    Q_EMIT uidChanged(m_uid);
}

void DeviceInfo::setDeviceName(const QString& deviceName)
{
    if (m_deviceName == deviceName)
        return;
    m_deviceName = deviceName;
    Q_EMIT deviceNameChanged(m_deviceName);
}

void DeviceInfo::setSourceName(const QString& sourceName)
{
    if (m_sourceName == sourceName)
        return;
    m_sourceName = sourceName;
    Q_EMIT sourceNameChanged(m_sourceName);
}

void DeviceInfo::setDeviceId(int deviceId)
{
    if (m_deviceId == deviceId)
        return;
    m_deviceId = deviceId;
    Q_EMIT deviceIdChanged(m_deviceId);
}

void DeviceInfo::setManufacturer(const QString& manufacturer)
{
    if (m_manufacturer == manufacturer)
        return;
    m_manufacturer = manufacturer;
    Q_EMIT manufacturerChanged(m_manufacturer);
}

void DeviceInfo::setDescription(const QString& description)
{
    if (m_description == description)
        return;
    m_description = description;
    Q_EMIT descriptionChanged(m_description);
}

} // namespace DeviceManager
