#pragma once

#include "multimedia/multimedia_global.h"
#include "multimedia/screenrecord/yuv420pframe.h"

#include <QtCore/QObject>
#include <QtCore/QRect>
#include <QtGui/QScreen>

#include <cstdint>
#include <memory>

namespace multimedia {

/// The live picture of a rectangle of a screen, for a preview: no file, the latest frame only.
///
/// `readyRead` says that a frame has come; frames that nobody took are overwritten, so a slow reader loses
/// frames and never queues them. The object and its commands belong to one thread, which has an event loop;
/// the work is done on the global thread pool.
class MULTIMEDIA_EXPORT ScreenGrabber : public QObject
{
    Q_OBJECT
    Q_PROPERTY(State state READ getState NOTIFY stateChanged)
    Q_PROPERTY(QScreen* screen READ getScreen NOTIFY screenChanged)
    Q_PROPERTY(QRect rect READ getRect NOTIFY rectChanged)
    Q_PROPERTY(uint8_t frame_rate READ getFrameRate NOTIFY frameRateChanged)

public:
    enum State { kWaiting = 0, kStarting = 1, kRunning = 2, kStopping = 3 };
    Q_ENUM(State)

    class Private;

    explicit ScreenGrabber(QObject* parent = nullptr);
    ~ScreenGrabber() override;

    State getState() const;
    QScreen* getScreen() const;
    /// Logical pixels, relative to the screen.
    QRect getRect() const;
    /// Frames per second.
    uint8_t getFrameRate() const;

    /// A reference to the latest frame, which stays in place; an empty frame, and a log line, before the
    /// first.
    Yuv420pFrame takeFrame();

public Q_SLOTS:
    /// False, and a log line, unless the grabber waits.
    bool start(QScreen* screen, QRect rect, uint8_t frame_rate);
    void stop();

Q_SIGNALS:
    void stateChanged(multimedia::ScreenGrabber::State state);
    void screenChanged(QScreen* screen);
    void rectChanged(QRect rect);
    void frameRateChanged(uint8_t frame_rate);
    void readyRead();

protected:
    void customEvent(QEvent* event) override;

    /// `start` and `stop` make the Worker of their step in it, and leave it to who derives to run it.
    const std::unique_ptr<Private> d;
};

} // namespace multimedia
