#pragma once

#include "multimedia/base/inputpresence.h"
#include "multimedia/base/mediahandle.h"

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QTimer>
#include <QtMultimedia/QAudioDeviceInfo>
#include <QtMultimedia/QAudioFormat>

#include <atomic>
#include <functional>

class QAudioInput;
class QIODevice;

namespace multimedia {

/// Source stage: the default microphone, in frames of 1024 samples.
///
/// The object lives on the background thread (`moveToThread`), and its audio input with it: made, read,
/// stopped and deleted there, since Qt deletes what is read from as soon as the sound server goes. What has
/// been read is gathered until it fills a frame: the number of bytes that the input calls ready is not to be
/// trusted.
///
/// When the device vanishes the sound server goes on with another one, in a room that nobody chose: then, and
/// when the server itself goes, the input is stopped with a log line, and no more frames come.
class GetQaudio : public QObject
{
    Q_OBJECT

public:
    struct Params
    {
        std::function<void(FrameHandle)> on_frame; ///< called on the object's own thread
        int sample_rate = 0;                       ///< Hz
        int channels = 0;
        int sample_format = 0; ///< not read: the format follows from what the device gives
        int sample_size = 0;   ///< bits per sample
        int reserved = 0;      ///< not read
    };

    explicit GetQaudio(Params params);
    /// From any thread but not while `init` is about to be called by anything but a posted event.
    ~GetQaudio() override;

    void start();
    /// Stops the input, for good. Waits for the thread on which the object lives: no frame comes afterwards.
    void stop();

Q_SIGNALS:
    void finish();

public Q_SLOTS:
    /// Opens the microphone and begins to read. On the object's own thread.
    void init();

protected:
    void customEvent(QEvent* event) override;

private:
    QAudioFormat wantedFormat() const;
    bool openInput();
    void closeInput();
    void run();
    bool fillFrame();
    bool makeFrame();

    const Params params;
    std::atomic<bool> running = true;
    std::atomic<bool> exit = false;

    // On the object's own thread only.
    QTimer timer; ///< when to read; child of this object, so that it lives on the same thread
    QAudioDeviceInfo device;
    InputPresence presence;
    QAudioFormat format;
    QAudioInput* audio_input = nullptr; ///< child of this object
    QPointer<QIODevice> io;             ///< owned by `audio_input`, which may delete it
    QByteArray gathered;                ///< read and not yet a whole frame
    FrameHandle frame;                  ///< the next one, empty
};

} // namespace multimedia
