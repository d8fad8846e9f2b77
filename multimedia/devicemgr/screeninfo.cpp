#include "multimedia/devicemgr/screeninfo.h"

#include <QtGui/QScreen>

namespace DeviceManager {

ScreenInfo::ScreenInfo(QObject* parent)
    : DeviceInfo(parent)
{}

ScreenInfo::ScreenInfo(QScreen* screen, QObject* parent)
    : DeviceInfo(parent)
    , m_geometry(screen->geometry())
    , m_availableGeometry(screen->availableGeometry())
    , m_dpi(screen->devicePixelRatio())
    , m_size(screen->size())
{
    setDeviceName(screen->name());
    setUid(screen->name());
}

void ScreenInfo::setGeometry(const QRect& geometry)
{
    if (m_geometry == geometry)
        return;
    m_geometry = geometry;
    Q_EMIT geometryChanged(m_geometry);
}

void ScreenInfo::setAvailableGeometry(const QRect& availableGeometry)
{
    if (m_availableGeometry == availableGeometry)
        return;
    m_availableGeometry = availableGeometry;
    Q_EMIT availableGeometryChanged(m_availableGeometry);
}

void ScreenInfo::setDepth(int depth)
{
    if (m_depth == depth)
        return;
    m_depth = depth;
    Q_EMIT depthChanged(m_depth);
}

void ScreenInfo::setDpi(double dpi)
{
    if (m_dpi == dpi)
        return;
    m_dpi = dpi;
    Q_EMIT dpiChanged(m_dpi);
}

void ScreenInfo::setsize(const QSize& size)
{
    if (m_size == size)
        return;
    m_size = size;
    Q_EMIT sizeChanged(m_size);
}

} // namespace DeviceManager
