#pragma once

#include "multimedia/base/ffmpegptr.h"
#include "multimedia/base/mediahandle.h"

#include <chrono>
#include <cstdint>
#include <string>

/// @file
/// The one way in for media, which strangers have sent as a rule.

namespace multimedia {

enum class SourceOrigin {
    LocalFile, ///< a regular file
    Http,      ///< an http(s) URL
};

/// Of one picture: a few bytes can ask for any number.
constexpr int64_t kMaxPixels = 100'000'000;

/// What an opener wants.
struct SourceOptions
{
    SourceOrigin origin = SourceOrigin::LocalFile;
    /// Polled by every read, for as long as the source lives.
    AVIOInterruptCB cancelled = {nullptr, nullptr};
    /// For `open` and `findStreams` together; 0 for none.
    std::chrono::milliseconds time_limit{10'000};
    int64_t network_timeout_us = 0;  ///< of one network operation; 0 for none
    int64_t max_pixels = kMaxPixels; ///< of one picture
    /// Makes presentation times where a container has decoding times only, as AVI has.
    bool completes_times = false;
    /// For `releaseBare`; there may be no cancel and no time limit then.
    bool is_given_away = false;
};

/// An opened file or address, its streams, and the decoder of one of them.
///
/// The order of calls is `open`, `findStreams`, `select`, `openDecoder`, and then `decode` or `read`; who
/// needs less stops earlier. Results are 0 or FFmpeg's negative code, of which the subject makes what it
/// tells its caller; a bound that is crossed leaves a log line.
///
/// A source opens itself and nothing else. It is a media container by what its bytes say, whatever its name
/// is: playlists, manifests, scripts, image sequences, single pictures and texts are none, and their demuxers
/// never run. A local path is taken by the letter, so that "concat:a|b" or "http://host/x" is only an odd
/// file name; folders, pipes and devices are refused before they can block. What a few bytes can ask for is
/// bounded: streams, pixels, sample rate, channels, the size of a packet, what is read to learn the streams,
/// and the time that takes.
///
/// One thread at a time; blocks for as long as the source does.
class MediaSource
{
public:
    static constexpr int kLowestRate = 1000;    ///< Hz
    static constexpr int kHighestRate = 768000; ///< Hz
    static constexpr int kMostChannels = 64;
    static constexpr int kLargestPacket = 256 << 20; ///< bytes

    /// Opens the capture of a device of this machine, which is no stranger: nothing above holds for it.
    ///
    /// @param format   FFmpeg's name of the capture input
    /// @param options  what the input takes of it is taken out
    static int openDevice(InputPtr& input, const std::string& format, const std::string& device,
                          Dictionary& options);
    /// Opens the decoder of a stream by itself.
    static int makeDecoder(CodecContextPtr& decoder, const AVStream& stream, int64_t max_pixels = kMaxPixels);

    MediaSource() = default;
    /// Goes on with an input that is open.
    explicit MediaSource(InputPtr opened);

    /// @param path  UTF-8
    int open(const std::string& path, const SourceOptions& options = {});
    /// Learns what the streams are, by decoding some of them where it must.
    int findStreams();
    /// Takes the best stream of a kind.
    int select(AVMediaType type);
    /// Takes a stream by its index, which must exist.
    void select(int stream_index) { selected = stream_index; }
    /// Opens the decoder of the selected stream.
    int openDecoder();

    /// The next packet of any stream. `AVERROR_EOF` at the end, but an error where the file has become
    /// shorter than it was, `AVERROR_EXIT` when cancelled or over time.
    int read(AVPacket& packet);
    /// The next frame of the selected stream; what cannot be decoded is left out. `AVERROR_EOF` after the
    /// last one that the decoder held back.
    int decode(AVFrame& frame);
    /// From now on, for all that reads; 0 for no limit.
    void limitTime(std::chrono::milliseconds time);
    /// Whether reads fail because of a cancel or the time.
    bool isInterrupted() const;

    void close();
    explicit operator bool() const { return input != nullptr; }
    AVFormatContext* format() const { return input.get(); }
    int streamIndex() const { return selected; }
    AVStream* stream() const { return input->streams[selected]; }
    AVCodecContext* codec() const { return decoder.get(); }
    /// How sure it is what the container is, 0 to 100; below 51 it is a guess.
    int probeScore() const;
    /// Milliseconds; 0 when nobody knows.
    int64_t duration() const;

    /// Gives the input away, which goes on to poll the cancel and the time.
    InputPtr release();
    /// Gives the input away to be closed by `avformat_close_input`. It must have been opened for that.
    AVFormatContext* releaseBare();

private:
    friend detail::InputDeleter;
    struct Guard;

    int openContext(const std::string& path, Guard& made);
    int meetStreams();
    bool hasPacket();
    int sendNext();

    InputPtr input;
    Guard* guard = nullptr; ///< hangs on `input`
    CodecContextPtr decoder;
    PacketHandle packet;
    int selected = -1;
};

} // namespace multimedia
