#pragma once

#include "multimedia/base/crop.h"
#include "multimedia/base/decode.h"
#include "multimedia/base/encode.h"
#include "multimedia/base/formatin.h"
#include "multimedia/base/formatout.h"
#include "multimedia/base/getqaudio.h"
#include "multimedia/base/resample.h"
#include "multimedia/base/scale.h"
#include "multimedia/base/worker.h"
#include "multimedia/screenrecord/screenrecord.h"

#include <QtCore/QEvent>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

class QThread;

namespace multimedia {

/// The state machine behind `ScreenRecord`: builds the graph of stages, starts it, drains it, tears it down.
///
///     FormatIn > Decode > Crop > Scale > Encode > onVideoPacket >
///                                                                 FormatOut
///            GetQaudio > Resample > Encode > onAudioPacket      >
///
/// `Pausing` is the hub: the graph stands and nothing flows. From `Waiting` to `Running` are two steps (open,
/// start), back again two (stop, close); each step is one pass of `worker`, on the global thread pool, and
/// the only way back to the owner is an event posted to it.
///
/// What is said to be guarded by `mutex` comes from any thread. The stages are touched by the steps only; the
/// two packet callbacks come on the encoders' pool threads and take `mutex` for each packet.
class ScreenRecordPrivate : public QObject
{
    Q_OBJECT

public:
    /// Posted to the owner when a change has finished.
    static const int kStateChangeEventType;

    explicit ScreenRecordPrivate(ScreenRecord* q);
    /// Waits until the steps have ended.
    ~ScreenRecordPrivate() override;

    /// Heads for `to`; ignored when the machine is there or on its way. During `Processing` only the
    /// destination changes: the position belongs to the step under way.
    void changeState(ScreenRecord::State to);

    // Guarded by `mutex`.
    mutable std::mutex mutex;
    ScreenRecord::State state = ScreenRecord::Waiting; ///< as seen from outside
    bool is_gif = false;
    bool is_mute = false;
    QScreen* screen = nullptr; ///< cleared when the screen is taken away
    QRect rect;                ///< logical pixels
    QString file;              ///< of the last finished recording

Q_SIGNALS:
    void ToThread();

public Q_SLOTS:
    void CloseThread();

private:
    /// What one graph is built for. The properties may change while it stands.
    struct Plan
    {
        bool is_gif = false;
        bool has_sound = false;
        int frame_rate = 0;
        QRect source; ///< device pixels of the screen
        QSize target; ///< even sides
    };

    bool run();
    ScreenRecord::State step(ScreenRecord::State from, ScreenRecord::State destination);
    void open();
    void start();
    void stop();
    void close();

    Plan makePlan();
    void openOutput();
    void openVideo();
    void openCapture();
    int recordedIndex() const;
    void openAudio();
    void onVideoPacket(PacketHandle packet);
    void onAudioPacket(PacketHandle packet);
    bool videoCanCome() const;
    void clearRemovedScreen(QScreen* removed);

    ScreenRecord* const q;
    ScreenRecord::State current = ScreenRecord::Waiting; ///< position of the steps; guarded by `mutex`
    ScreenRecord::State target = ScreenRecord::Waiting;  ///< guarded by `mutex`

    QScreen* recorded_screen = nullptr; ///< of the present graph; as `screen`, guarded by `mutex`

    Plan plan;                                                ///< steps only
    std::chrono::steady_clock::time_point capture_idle_since; ///< steps only
    std::unique_ptr<FormatIn> format_in;
    std::unique_ptr<FormatOut> format_out;
    std::unique_ptr<Decode> decode;
    std::unique_ptr<Encode> encode;
    std::unique_ptr<Crop> crop;
    std::unique_ptr<Scale> scale;
    std::unique_ptr<GetQaudio> get_qaudio;
    std::unique_ptr<Resample> resample;
    std::unique_ptr<Encode> audio_encode;

    std::atomic<bool> running = false;                ///< packets are being kept
    std::chrono::steady_clock::time_point start_time; ///< of the present running period; steps only
    int64_t last_pts = INT64_MAX; ///< end of the video, in the stream's time base; guarded by `mutex`
    bool end_reached = false;     ///< a video packet at `last_pts` or behind it has come; guarded by `mutex`
    std::condition_variable condition;   ///< pairs with `mutex`: `end_reached` was set
    double audio_end = 0;                ///< end of the sound, in seconds; guarded by `mutex`
    AVRational audio_time_base = {0, 1}; ///< guarded by `mutex`
    QThread* thread = nullptr;           ///< for `CloseThread` only

    std::unique_ptr<Worker> worker; ///< last: nothing else goes before its steps have ended
};

} // namespace multimedia
