#pragma once

#include "multimedia/base/ffmpegversion.h"
#include "multimedia/base/mediasource.h"
#include "multimedia/speechrecognizer/speechservice.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace speechRecognize {

/// Samples as the recogniser takes them: one channel of 16 bits.
using SpeechSamples = std::vector<std::int16_t>;
constexpr int kSpeechRate = 16000; ///< Hz

/// Sound of any layout, format and rate, read piece by piece as speech samples. One thread.
class SpeechAudio
{
public:
    virtual ~SpeechAudio() = default;
    /// Replaces `samples` by the next piece, at most about a second; an empty one is the end.
    /// @return 0, or FFmpeg's negative code and no samples
    virtual int read(SpeechSamples& samples) = 0;

protected:
    /// Replaces `samples` by `count` samples per channel of `in`. A change of `layout` loses the few samples
    /// that the resampler holds back.
    int convert(const multimedia::AudioLayout& layout, const std::uint8_t* const* in, int count,
                SpeechSamples& samples);
    /// Replaces `samples` by what the resampler holds back.
    int flush(SpeechSamples& samples);

private:
    int open(const multimedia::AudioLayout& layout);

    multimedia::AudioLayout source;
    multimedia::SwrContextPtr resampler;
};

/// The best audio stream of a file. Frames that cannot be decoded are left out.
class FileAudio : public SpeechAudio
{
public:
    /// @param cancelled  makes every operation end soon, with an error; must outlive the object
    explicit FileAudio(const std::atomic<bool>& cancelled)
        : cancelled(cancelled)
    {}
    /// 0, or FFmpeg's negative code.
    int open(const std::string& path);
    int read(SpeechSamples& samples) override;

private:
    const std::atomic<bool>& cancelled;
    multimedia::MediaSource source;
    multimedia::FrameHandle frame;
};

/// Samples in memory.
class BufferAudio : public SpeechAudio
{
public:
    explicit BufferAudio(PcmAudio audio)
        : audio(std::move(audio))
    {}
    int read(SpeechSamples& samples) override;

private:
    PcmAudio audio;
    std::size_t position = 0; ///< bytes
};

} // namespace speechRecognize
