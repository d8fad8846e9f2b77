#pragma once

#include "multimedia/multimedia_global.h"

#include <QtCore/QObject>
#include <QtCore/QRect>
#include <QtCore/QString>
#include <QtGui/QScreen>

#include <memory>

namespace multimedia {

class ScreenRecordPrivate;

/// Records a rectangle of a screen to MP4 (H.264 at 25 frames per second, with the default microphone as AAC
/// stereo at 44100 Hz) or to GIF (10 frames per second, shorter side at most 1080 pixels, no sound).
///
/// Set `screen` and `rect`, then `start()`. Commands return at once; the work is done on the global thread
/// pool and `stateChanged` says that it is done:
///
/// | From    | Command | Ends in |
/// |---------|---------|---------|
/// | Waiting | start   | Running |
/// | Waiting | pause   | Pausing |
/// | Running | pause   | Pausing |
/// | Pausing | start   | Running |
/// | Running | stop    | Waiting |
/// | Pausing | stop    | Waiting |
///
/// Any other command is ignored. A command during `Processing` changes where the way leads. The end of a
/// recording is `fileChanged`, then `stateChanged(Waiting)`; the file stands in the temporary directory, for
/// its owner's eyes only (0600), and belongs to the caller from then on. The file named there plays; its name
/// is empty when nothing could be recorded. There is no error signal: what could not be opened is in the log.
///
/// The film follows the clock: a slow or busy machine repeats pictures, and neither the picture nor the sound
/// runs away. A recording ends as if stopped when its screen is taken away, when the disk is full and when
/// the application ends, whether by its event loop or without; then the file is that of `getFile`. A process
/// that is killed leaves a file that plays to the last second or so.
///
/// From the moment when the microphone goes away, or the sound server, the sound is silence: no other
/// microphone takes its place.
///
/// Sound ends at the first pause of a recording. Without any microphone a recording is silent as if `isMute`
/// were set, which then reads true.
///
/// Make and destroy the object on the main thread. Setters, getters and commands may be called from any
/// thread; a setter's signal comes on the caller's thread, `stateChanged` and `fileChanged` on the object's.
/// `stateChanged` tells the state at that moment: `Processing`, when another command came meanwhile.
/// Destroying the object carries a recording to its end first, and waits for that.
class MULTIMEDIA_EXPORT ScreenRecord : public QObject
{
    Q_OBJECT
    Q_PROPERTY(State state READ getState NOTIFY stateChanged)
    Q_PROPERTY(bool isGif READ getIsGif WRITE setIsGif NOTIFY isGifChanged)
    Q_PROPERTY(bool isMute READ getIsMute WRITE setIsMute NOTIFY isMuteChanged)
    Q_PROPERTY(QScreen* screen READ getScreen WRITE setScreen NOTIFY screenChanged)
    Q_PROPERTY(QRect rect READ getRect WRITE setRect NOTIFY rectChanged)
    Q_PROPERTY(QString file READ getFile NOTIFY fileChanged)

public:
    enum State {
        Waiting = 0,    ///< nothing is built
        Running = 1,    ///< recording
        Pausing = 2,    ///< built, and nothing flows
        Processing = 3, ///< a change is under way
    };
    Q_ENUM(State)

    explicit ScreenRecord(QObject* parent = nullptr);
    ~ScreenRecord() override;

    State getState() const;
    bool getIsGif() const;
    bool getIsMute() const;
    /// Null once the screen has been taken away.
    QScreen* getScreen() const;
    /// Logical pixels, relative to the screen.
    QRect getRect() const;
    /// Path of the last finished recording; empty when it left none that plays.
    QString getFile() const;

public Q_SLOTS:
    // During `Processing` a setter is refused. While `Running` or `Pausing` it counts for the next recording.
    void setIsGif(bool is_gif);
    void setIsMute(bool is_mute);
    void setScreen(QScreen* screen);
    void setRect(QRect rect);
    void start();
    void pause();
    void stop();

Q_SIGNALS:
    void stateChanged(multimedia::ScreenRecord::State state);
    void isGifChanged(bool is_gif);
    void isMuteChanged(bool isMute);
    void screenChanged(QScreen* screen);
    void rectChanged(QRect rect);
    void fileChanged(QString file);

protected:
    void customEvent(QEvent* event) override;

private:
    const std::unique_ptr<ScreenRecordPrivate> d;
};

} // namespace multimedia
