#pragma once

#include "multimedia/devicemgr/deviceinfo.h"

#include <QtCore/QRect>
#include <QtCore/QSize>

class QScreen;

namespace DeviceManager {

/// A screen as it was when its entry was made: its name stands for `uid` and `deviceName`.
///
/// The properties are declared constant; the setters beside them are for native code.
class MULTIMEDIA_EXPORT ScreenInfo : public DeviceInfo
{
    Q_OBJECT
    Q_PROPERTY(QRect geometry READ geometry CONSTANT)
    Q_PROPERTY(QRect availableGeometry READ availableGeometry CONSTANT)
    Q_PROPERTY(int depth READ depth CONSTANT)
    Q_PROPERTY(double dpi READ dpi CONSTANT)
    Q_PROPERTY(QSize size READ size CONSTANT)

public:
    explicit ScreenInfo(QObject* parent = nullptr);
    /// `screen` is not null.
    ScreenInfo(QScreen* screen, QObject* parent);

    /// In the desktop's device-independent pixels, as everything here that is measured in pixels.
    QRect geometry() const { return m_geometry; }
    QRect availableGeometry() const { return m_availableGeometry; }
    /// 0: not filled from a screen.
    int depth() const { return m_depth; }
    /// Device pixels per device-independent pixel.
    double dpi() const { return m_dpi; }
    QSize size() const { return m_size; }

public Q_SLOTS:
    void setGeometry(const QRect& geometry);
    void setAvailableGeometry(const QRect& availableGeometry);
    void setDepth(int depth);
    void setDpi(double dpi);
    void setsize(const QSize& size);

Q_SIGNALS:
    void geometryChanged(QRect geometry);
    void availableGeometryChanged(QRect availableGeometry);
    void depthChanged(int depth);
    void dpiChanged(double dpi);
    void sizeChanged(QSize size);

private:
    QRect m_geometry;
    QRect m_availableGeometry;
    int m_depth = 0;
    double m_dpi = 0;
    QSize m_size;
};

} // namespace DeviceManager
