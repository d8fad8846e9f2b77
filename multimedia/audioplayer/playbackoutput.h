#pragma once

#include <QtCore/QDeadlineTimer>
#include <QtCore/QElapsedTimer>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

class QAudioOutput;
class QIODevice;

namespace multimedia {

/// The sound device of one playback: 16-bit stereo at 44100 Hz on the default output, which it follows when
/// that changes. Belongs to the player's thread, but for the two requests.
class PlaybackOutput
{
public:
    PlaybackOutput();
    ~PlaybackOutput();
    PlaybackOutput(const PlaybackOutput&) = delete;
    PlaybackOutput& operator=(const PlaybackOutput&) = delete;

    /// Opens the default output anew. False, and not ready, without one.
    bool initAudio();
    /// Qt handles events of the thread meanwhile.
    void close();
    /// Does what was requested meanwhile; to be called before every attempt to write.
    void update();
    /// Whether there is a device to write to; without one the playback goes on in silence.
    bool isReady() const { return ready; }

    /// Whether the device takes a period.
    bool hasRoom();
    /// Writes at most a period; only after `hasRoom`. What was written, or -1.
    qint64 write(const char* data, qint64 size);
    /// How long to wait before the next attempt: not at all while there is room, else until some periods
    /// should have played, so that not each of them wakes the processor. A device that is late is looked at
    /// often.
    std::chrono::microseconds untilRoom() const;
    /// Tells how an attempt went: a device that takes nothing for long is given up.
    void watch(bool written);
    /// Plays out what was written, up to a second.
    ///
    /// @param wait  waits for the time given, or returns false to leave at once
    void drain(const std::function<bool(std::chrono::microseconds)>& wait);

    /// How long so many bytes play.
    static std::chrono::microseconds playingTime(qint64 bytes);

    // Requests, on any thread.
    void followDevice();
    void requestClose() { close_requested = true; }

private:
    void followDeviceChange();
    void watchStart(int free);
    void padWithSilence();

    std::atomic<bool> has_output = false; ///< `output` is there
    std::atomic<bool> device_changed = false;
    std::atomic<bool> close_requested = false;

    std::unique_ptr<QAudioOutput> output;
    QIODevice* device = nullptr; ///< of `output`
    bool ready = false;
    int dry_free = 0;           ///< bytes that the device had free before the first write since it was dry
    qint64 since_dry_bytes = 0; ///< written since then
    bool started = false;       ///< the device has taken some of that out of its buffer: it plays
    QElapsedTimer since_write;  ///< since the device took data
    int reopen_tries = 0;       ///< left, since the default output changed
    QDeadlineTimer next_reopen; ///< when the next one is due
};

} // namespace multimedia
