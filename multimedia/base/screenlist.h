#pragma once

#include <QtCore/QObject>
#include <QtCore/QRect>

#include <mutex>
#include <vector>

class QScreen;

namespace multimedia {

/// The screens of `QGuiApplication`, for threads that may not ask it.
///
/// Qt changes its list of screens on the main thread without a lock; a stage on the pool would read it while
/// a screen is unplugged. So the main thread keeps this copy. The first call of `instance` belongs on the
/// main thread; after it any thread may ask.
class ScreenList : public QObject
{
    Q_OBJECT

public:
    static ScreenList& instance();

    /// Position in `QGuiApplication::screens()`; -1 when it is not there. The pointer is compared only.
    int indexOf(const QScreen* screen) const;
    /// What the screen covers of the whole desktop, in device pixels; empty when there is no such screen.
    QRect devicePixels(int index) const;
    /// Device pixels to a logical one; 1 when the screen is not there.
    double pixelRatio(const QScreen* screen) const;

private:
    struct Entry
    {
        const QScreen* screen = nullptr;
        QRect device_pixels;
        double pixel_ratio = 1;
    };

    ScreenList();
    void watch(QScreen* screen);
    void update(const QScreen* removed = nullptr);
    /// With `mutex` held.
    std::vector<Entry>::const_iterator find(const QScreen* screen) const;

    mutable std::mutex mutex;
    std::vector<Entry> entries; ///< guarded by `mutex`
};

} // namespace multimedia
