#pragma once

#include "multimedia/base/mediahandle.h"
#include "multimedia/base/worker.h"

#include <QtCore/QBuffer>
#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtMultimedia/QAudioDeviceInfo>
#include <QtMultimedia/QAudioFormat>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

class QAudioInput;
class QIODevice;

namespace multimedia {

/// Source stage: the default microphone, in frames of 1024 samples.
///
/// The object lives on the background thread (`moveToThread`), and its audio input with it: made in `init`,
/// stopped and deleted there. The passes read from the pool; reading and stopping exclude each other under
/// `mutex`. What has been read is gathered until it fills a frame, since the number of bytes that the input
/// calls ready is not to be trusted.
class GetQaudio : public QObject
{
    Q_OBJECT

public:
    struct Params
    {
        std::function<void(FrameHandle)> on_frame;
        int sample_rate = 0; ///< Hz
        int channels = 0;
        int sample_format = 0; ///< not read: the format follows from what the device gives
        int sample_size = 0;   ///< bits per sample
        int reserved = 0;      ///< not read
    };

    explicit GetQaudio(Params params);
    /// From any thread but not while `init` is about to be called by anything but a posted event.
    ~GetQaudio() override;

    void start();
    /// Stops the input, for good, and ends the passes. Waits for the thread on which the object lives.
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
    bool run();
    FrameHandle makeFrame() const;
    bool fillFrame(FrameHandle& frame);

    Params params;
    std::unique_ptr<Worker> worker;    ///< made in `init`; guarded by `mutex`
    std::mutex mutex;                  ///< guards what follows, and every call of the input
    std::condition_variable condition; ///< pairs with `mutex`: cuts the rest between two reads short
    bool running = true;
    std::atomic<bool> exit = false;
    QAudioDeviceInfo device;
    QAudioFormat format;
    QAudioInput* audio_input = nullptr; ///< child of this object
    QByteArray bytes;                   ///< behind `buffer`
    QBuffer buffer;
    QIODevice* io = nullptr; ///< owned by `audio_input`
    QByteArray gathered;     ///< read and not yet a whole frame
};

} // namespace multimedia
