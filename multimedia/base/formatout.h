#pragma once

#include "multimedia/base/fileinfo.h"
#include "multimedia/base/mediahandle.h"
#include "multimedia/base/stage.h"

#include <atomic>
#include <condition_variable>
#include <functional>

namespace multimedia {

/// Sink stage: interleaves the packets of any number of encoders into one file.
///
/// The encoders add their streams to `getFormat()`; then `writeHeader` is called, once, before any packet
/// comes; the destructor writes what has arrived and the trailer, and closes the file. Packets that come
/// without a header are kept and reported, a few times a second, until the destructor drops them.
///
/// A file that takes no more bytes (a full disk) is reported once, and nothing is written to it any more.
///
/// `write` from any thread; the muxer is touched by passes only, and by the destructor after the last one.
class FormatOut
{
public:
    struct Params
    {
        FormatHandle format; ///< the stage takes ownership
        /// Called once, on a pool thread, when the file takes no more bytes.
        std::function<void()> on_failure = {};
    };

    /// Makes the output context for `info.path()`, whose extension chooses the muxer. A file of that name is
    /// deleted first. A null handle, and a log line, on failure.
    static FormatHandle createFile(FileInfo info);
    /// Closes the file, if one was opened, and frees the context.
    static void destory(AVFormatContext* format);

    explicit FormatOut(Params params);
    ~FormatOut();

    AVFormatContext* getFormat() const { return params.format.get(); }
    /// Opens the file and writes its header. Not while packets arrive.
    void writeHeader();
    void write(PacketHandle packet);
    /// Whether packets reach the file: it has a header, and takes bytes. Any thread.
    bool isWriting() const { return header_written && !failed; }
    /// Called by the destructor; a second call finds it written. Not while packets arrive.
    void writeTrailer();

private:
    bool run();
    bool waitForHeader();
    void fail();

    Params params;
    std::atomic<bool> header_written = false;
    std::atomic<bool> failed = false;
    bool trailer_written = false;
    bool closing = false;           ///< the destructor has begun; guarded by the mutex of `input`
    std::condition_variable closed; ///< pairs with the mutex of `input`
    StageInput<PacketHandle> input;
};

} // namespace multimedia
