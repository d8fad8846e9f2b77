#pragma once

#include "multimedia/base/crop.h"
#include "multimedia/base/encode.h"
#include "multimedia/base/formatout.h"
#include "multimedia/base/framefeed.h"
#include "multimedia/base/getqaudio.h"
#include "multimedia/base/picturebudget.h"
#include "multimedia/base/processend.h"
#include "multimedia/base/resample.h"
#include "multimedia/base/scale.h"
#include "multimedia/base/worker.h"
#include "multimedia/screenrecord/pace.h"
#include "multimedia/screenrecord/screenrecord.h"
#include "multimedia/screenrecord/soundpace.h"
#include "multimedia/screensource/screensource.h"

#include <QtCore/QEvent>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class QThread;

namespace multimedia {

/// The state machine behind `ScreenRecord`: builds the graph of stages, starts it, drains it, tears it down.
///
///     ScreenSource > Crop > Scale > Pace > FrameFeed > Encode > onVideoPacket >
///       admit                                                                   FormatOut
///     GetQaudio > SoundPace > Resample > FrameFeed > Encode > onAudioPacket   >
///
/// What keeps the time stands between the stages: `Pace` has one picture a tick of the clock reach the
/// encoder, `SoundPace` puts the sound on the same clock, the feeds have the encoders take every frame up.
/// `admit` is where a picture enters the graph, or is left out: for want of room in the budget, of a tick, or
/// of a file to be written.
///
/// `Pausing` is the hub: the graph stands and nothing flows. From `Waiting` to `Running` are two steps (open,
/// start), back again two (stop, close); each step is one pass of `worker`, on the global thread pool, and
/// the only way back to the owner is an event posted to it. On a desktop that asks its user the first step
/// lasts until there is an answer, or the recording is wanted no longer; refused, the machine stays where it
/// is.
///
/// What is said to be guarded by `mutex` comes from any thread. The stages are made and destroyed by the
/// steps only; `admit` is called by the source, `onTick` by the pace, the two packet callbacks by the
/// encoders.
///
/// A recording ends by itself, as if stopped, when its screen is taken away, by whoever unplugs it or no
/// longer shares it, when its disk is full, and when the process ends.
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
    QScreen* screen = nullptr;  ///< cleared when the screen is taken away
    QRect rect;                 ///< logical pixels
    QString file;               ///< of the last finished recording; empty when it left none that plays
    std::vector<QString> ended; ///< values of `file` that the owner has not told of yet

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
        QRect rect;       ///< logical pixels of the screen
        std::string path; ///< of the file
        QSize target;     ///< pixels; even sides
    };

    bool run();
    ScreenRecord::State step(ScreenRecord::State from, ScreenRecord::State destination);
    bool open();
    void start();
    void stop();
    void close();

    Plan makePlan();
    void openOutput();
    void openVideo();
    void openAudio();
    std::unique_ptr<ScreenSource> makeSource();
    bool sourceIsReady();
    void onSourceChange(ScreenSource::State next);
    int recordedIndex() const;
    bool admit(AVBufferRef** picture);
    void onTick(FrameHandle picture);
    void onVideoPacket(PacketHandle packet);
    void onAudioPacket(PacketHandle packet);
    bool canRecord() const;
    void flushVideo();
    void finishFile();
    void tellOfFile(const QString& finished);
    void clearRemovedScreen(QScreen* removed);

    ScreenRecord* const q;
    ScreenRecord::State current = ScreenRecord::Waiting; ///< position of the steps; guarded by `mutex`
    ScreenRecord::State target = ScreenRecord::Waiting;  ///< guarded by `mutex`

    QScreen* recorded_screen = nullptr; ///< of the present graph; as `screen`, guarded by `mutex`

    std::condition_variable source_changed; ///< or `target` has; pairs with `mutex`

    Plan plan; ///< steps only
    PictureBudget budget;
    std::unique_ptr<ScreenSource> source;
    std::unique_ptr<FormatOut> format_out;
    std::unique_ptr<Encode> encode;
    std::unique_ptr<FrameFeed> video_feed;
    std::unique_ptr<Pace> pace;
    std::unique_ptr<Crop> crop;
    std::unique_ptr<Scale> scale;
    std::unique_ptr<GetQaudio> get_qaudio;
    std::unique_ptr<SoundPace> sound_pace;
    std::unique_ptr<Resample> resample;
    std::unique_ptr<Encode> audio_encode;
    std::unique_ptr<FrameFeed> audio_feed;

    /// Ends of the tracks, in their streams' time bases: packets from there on only push those before through
    /// an encoder.
    std::atomic<int64_t> last_pts = INT64_MAX;
    std::atomic<int64_t> audio_end = INT64_MAX;
    std::atomic<bool> end_reached = false; ///< a video packet at `last_pts` or behind it has come
    std::atomic<int64_t> packets = 0;      ///< that went to the file
    std::atomic<bool> disk_is_full = false;
    QThread* thread = nullptr; ///< for `CloseThread` only

    std::unique_ptr<Worker> worker; ///< nothing above goes before its steps have ended
    std::unique_ptr<ProcessEnd> process_end;
};

} // namespace multimedia
