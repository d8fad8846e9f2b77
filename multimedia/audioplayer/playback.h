#pragma once

#include "multimedia/audioplayer/audioevents.h"
#include "multimedia/audioplayer/playbackoutput.h"
#include "multimedia/audioplayer/tempofilter.h"
#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/mediahandle.h"

#include <QtCore/QByteArray>
#include <QtCore/QDeadlineTimer>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace multimedia {

/// How long a read may stall. Tests cannot wait for as long.
extern std::atomic<std::chrono::milliseconds> g_readTimeout;

/// One playback, from the opening of its source to the end of its output.
///
/// It is made, run and destroyed on the player's thread. The requests may come from any thread while it
/// lives: they leave a note and wake the loop, which looks for notes at every packet, frame and write and
/// wherever it waits. Nothing of a playback outlives it, so what is asked of one cannot reach the next.
class Playback
{
public:
    /// What was asked for last; the odd ones make the loop leave.
    enum State {
        PlayStopping = 1, ///< leaves with `EventStopped`
        PlayPlaying = 2,
        PlayPausing = 4,  ///< aborts a read, leaves with `EventPaused`
        PlayBreaking = 5, ///< aborts a read, leaves without a word; nothing changes this any more
    };
    struct Source
    {
        QByteArray path; ///< UTF-8; a URL if it starts with "http"
        qint64 start_ms = 0;
        qint64 duration_hint_ms = 0; ///< 0 for none; see `AudioPlayer::breakPlay`
        double speed = 1.0;
    };
    using Report = std::function<void(EventId, const QVariantMap& info, const QString& message)>;

    Playback(Source source, Report report);
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;

    /// Plays, and reports all events but the last, `EventClosed`. Once only.
    void run();

    // Requests, on any thread.

    /// False when it was leaving already.
    bool stop();
    void pause();
    void breakOff();
    void seek(qint64 position_ms);
    void setSpeed(double speed);
    void followDevice() { output.followDevice(); }
    void closeOutput() { output.requestClose(); }
    bool isBroken() const { return state == PlayBreaking; }
    /// Position, ms.
    qint64 playTime() const { return play_time_ms; }
    /// Where a seek that has not been made yet leads, ms; negative for none.
    qint64 pendingSeek() const { return seek_ms; }

private:
    enum class Next { Leave, Head, Decode };

    bool readyDecoder();
    bool initDecoder();
    bool initFilter();
    void decodeAudio();
    bool decodeReceiveFrame();
    Next readPacket();
    Next handleReadFailure(int code);
    Next flushDecoder();
    Next retryLater();
    Next failPlay(const char* message);
    void seekNow();
    void seekHttp(qint64 position_ms);
    bool writeFilteredFrames();
    bool writeFrame(const AVFrame& frame);
    bool finishDecoding();
    void releaseAV();

    static int interrupt_callback(void* self);
    bool isInterrupted() const { return state == PlayPausing || state == PlayBreaking; }
    bool leaveIfAsked();
    template<typename Change>
    void request(Change change);
    template<typename Asked>
    void waitUnless(Asked asked, std::chrono::microseconds time);
    void waitUnlessAsked(std::chrono::microseconds time);

    void calcCurrentTime(int64_t pts);
    qint64 packetTime() const;
    void sendProgress(const AVFrame& frame);
    void setIsUnderload(bool underload);
    void send(EventId id, const QVariantMap& info = {}) const { report(id, info, {}); }
    void sendError(const char* message) const;
    AVStream* stream() const { return format->streams[stream_index]; }

    const Source source;
    const bool is_http;
    const Report report;

    std::atomic<int> state = PlayPlaying;
    std::atomic<qint64> seek_ms;      ///< pending seek; negative for none
    std::atomic<qint64> seek_base_ms; ///< where an HTTP source was entered
    std::atomic<qint64> play_time_ms;
    std::atomic<double> speed;
    std::atomic<bool> filter_dirty = false; ///< the speed changed
    std::mutex wake_mutex;                  ///< held while a request is noted, so that no wait misses it
    std::condition_variable wake;

    // What follows belongs to the player's thread.
    InputPtr format;
    int stream_index = 0; ///< the audio stream of `format`
    CodecContextPtr codec;
    FrameHandle frame;
    PacketHandle packet;
    TempoFilter filter;
    PlaybackOutput output;
    QDeadlineTimer read_deadline{QDeadlineTimer::Forever}; ///< of the present read
    int frame_duration_ms = 0;                             ///< of a filtered frame, learnt from the first
    int frame_count = 0;                                   ///< thins the progress events
    bool add_seek_base = false;                            ///< the source counts its time from `seek_base_ms`
    bool await_first_write = false;                        ///< the next position decides `add_seek_base`
    bool is_underload = false;
};

} // namespace multimedia
