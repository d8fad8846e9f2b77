#pragma once

#include "multimedia/base/fileinfo.h"
#include "multimedia/base/mediahandle.h"
#include "multimedia/base/worker.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace multimedia {

/// Source stage: reads packets from an opened input and hands each to the callable of its stream kind.
///
/// It has no input queue: its Worker loops on the read, whose blocking paces it. A failed read is logged and
/// read again after a pause; at the end of a file `on_video`, then `on_audio`, get a handle without data (a
/// null handle where the other one took it) and the loop ends.
///
/// `start` and `stop` from any thread; the callables are called on a pool thread with no lock held.
class FormatIn
{
public:
    struct VideoInfo
    {
        int frame_rate = 0;
        int video_index = 0; ///< as `getVideoIndex` gives it
    };

    struct Params
    {
        std::function<void(PacketHandle)> on_video;
        std::function<void(PacketHandle)> on_audio;
        FormatHandle format; ///< the stage takes ownership
    };

    /// Opens the capture of a screen. A null handle, and a log line, on failure.
    static FormatHandle createVideo(VideoInfo info);
    /// Opens a file. A null handle, and a log line, on failure.
    static FormatHandle createFile(FileInfo info);
    static void destory(AVFormatContext* format);

    explicit FormatIn(Params params);
    /// Waits for the read under way, then closes the input.
    ~FormatIn();
    FormatIn(const FormatIn&) = delete;
    FormatIn& operator=(const FormatIn&) = delete;

    /// Begins to read, or goes on after `stop`, from the same open input.
    void start();
    /// Lets the read under way finish and ends the loop. Does not wait.
    void stop();

    AVFormatContext* getFormat() const { return params.format.get(); }
    /// False without an input, and while reads fail: nothing will come then.
    bool canDeliver() const { return params.format && !read_failed; }

private:
    bool run();
    void readPacket();
    void deliver(AVPacket* packet) const;
    void endOfFormat(PacketHandle packet);
    void pause();

    Params params;
    std::mutex mutex;
    bool running = true;                   ///< guarded by `mutex`
    std::condition_variable stopped;       ///< pairs with `mutex`: cuts a pause short
    std::atomic<bool> read_failed = false; ///< of the last read
    Worker worker;
};

} // namespace multimedia
