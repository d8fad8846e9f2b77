#pragma once

#include <QtCore/QObject>
#include <QtCore/QRect>
#include <QtCore/QString>

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
    struct Screen
    {
        QString name;
        QRect geometry;         ///< logical pixels of the desktop
        double pixel_ratio = 1; ///< device pixels to a logical one
    };

    static ScreenList& instance();

    /// Position in `QGuiApplication::screens()`; -1 when it is not there. The pointer is compared only.
    int indexOf(const QScreen* screen) const;
    /// What the screen covers of the whole desktop, in device pixels; empty when there is no such screen.
    QRect devicePixels(int index) const;
    /// Without a name and of no size when there is no such screen.
    Screen screen(int index) const;

private:
    struct Entry
    {
        const QScreen* screen = nullptr;
        QRect device_pixels;
        Screen facts;
    };

    ScreenList();
    void watch(QScreen* screen);
    void update(const QScreen* removed = nullptr);
    mutable std::mutex mutex;
    std::vector<Entry> entries; ///< guarded by `mutex`
};

} // namespace multimedia
