#include "multimedia/devicemgr/devicemodel.h"

#include <QtQml/QQmlEngine>

#include <algorithm>
#include <utility>

namespace DeviceManager {

DeviceModel::DeviceModel(int deviceType, QObject* parent)
    : QAbstractListModel(parent)
    , m_roleNames{{DeviceItemRole, "deviceItem"}}
    , m_deviceType(deviceType)
{
    QQmlEngine::setObjectOwnership(this, QQmlEngine::CppOwnership);
}

DeviceModel::~DeviceModel()
{
    qDeleteAll(m_devices);
}

int DeviceModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : count();
}

QVariant DeviceModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_devices.size() || role != DeviceItemRole)
        return {};
    return QVariant::fromValue(m_devices.at(index.row()));
}

QHash<int, QByteArray> DeviceModel::roleNames() const
{
    return m_roleNames;
}

void DeviceModel::update(const QList<DeviceInfo*>& list, const QString& defaultDevice)
{
    beginResetModel();
    const QList<DeviceInfo*> old = std::exchange(m_devices, list);
    endResetModel();

    const bool current_is_there = std::any_of(m_devices.cbegin(), m_devices.cend(), [this](auto* device) {
        return device->deviceName() == m_currentDevice;
    });
    setDefaultDevice(defaultDevice);
    if (!current_is_there)
        setCurrentDevice(defaultDevice);
    qDeleteAll(old);
    Q_EMIT countChanged(count());
}

void DeviceModel::append(DeviceInfo* info)
{
    beginInsertRows({}, count(), count());
    m_devices.append(info);
    endInsertRows();
    Q_EMIT countChanged(count());
}

void DeviceModel::remove(const QString& uid)
{
    const auto found = std::find_if(m_devices.cbegin(), m_devices.cend(),
                                    [&uid](auto* device) { return device->uid() == uid; });
    if (found == m_devices.cend())
        return;
    const int row = static_cast<int>(found - m_devices.cbegin());
    beginRemoveRows({}, row, row);
    DeviceInfo* device = m_devices.takeAt(row);
    endRemoveRows();
    Q_EMIT countChanged(count());
    if (device->deviceName() == m_currentDevice)
        setCurrentDevice(m_defaultDevice);
    delete device;
}

void DeviceModel::clear()
{
    if (m_devices.isEmpty())
        return;
    beginRemoveRows({}, 0, count() - 1);
    m_devices.clear();
    endRemoveRows();
    Q_EMIT countChanged(0);
}

void DeviceModel::setDefaultDevice(const QString& defaultDevice)
{
    if (m_defaultDevice == defaultDevice)
        return;
    m_defaultDevice = defaultDevice;
    Q_EMIT defaultDeviceChanged(m_defaultDevice);
}

void DeviceModel::setCurrentDevice(const QString& currentDevice)
{
    if (m_currentDevice == currentDevice)
        return;
    m_currentDevice = currentDevice;
    Q_EMIT currentDeviceChanged(m_currentDevice);
}

void DeviceModel::setDisabled(bool disabled)
{
    if (m_disabled == disabled)
        return;
    m_disabled = disabled;
    Q_EMIT disabledChanged(m_disabled);
}

void DeviceModel::setMirror(bool mirror)
{
    if (m_mirror == mirror)
        return;
    m_mirror = mirror;
    Q_EMIT mirrorChanged(m_mirror);
}

} // namespace DeviceManager
