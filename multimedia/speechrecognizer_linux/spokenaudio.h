#pragma once

#include "multimedia/speechrecognizer_linux/speechaudio.h"

#include <atomic>
#include <cstddef>
#include <memory>

struct OpusEncoder;

namespace speechRecognize {

namespace detail {
struct OpusDeleter
{
    void operator()(OpusEncoder* encoder) const;
};
} // namespace detail

/// Tells speech from music.
///
/// It is the decision that the encoder of Opus makes for itself, by a small neural network on the loudness,
/// tonality and cepstrum of the last seconds: speech is coded by linear prediction, music by a transform. The
/// first byte of a packet says which it was (RFC 6716, section 3.1). What is neither, as noise, may be called
/// either. One thread.
class SpeechDetector
{
public:
    static constexpr std::size_t kFrame = std::size_t(kSpeechRate) * 60 / 1000; ///< samples of one look

    SpeechDetector();
    /// Whether the frame sounds like speech. The network remembers what it has heard before. From music to
    /// speech it takes half a second, at times three; from speech to music it waits half a second or more.
    bool hears(const std::int16_t* frame);

private:
    std::unique_ptr<OpusEncoder, detail::OpusDeleter> encoder;
};

/// Sound without its music: where nobody speaks there is a silence, of a second and a half at most. One
/// thread.
///
/// What the recognisers get is whole: speech with two seconds before it, in which the detector may have been
/// late. A second of what sounds like speech must come together, since music does so for moments; at the end
/// of the sound less is enough.
class SpokenAudio
{
public:
    /// @param cancelled  makes `read` end soon; it and the source must outlive the object
    SpokenAudio(SpeechAudio& source, const std::atomic<bool>& cancelled)
        : source(source)
        , cancelled(cancelled)
    {}
    /// As `SpeechAudio::read`. An error of the source comes when all the sound before it has been given.
    int read(SpeechSamples& samples);

private:
    void readSource();
    void listenAhead();
    void takeFrame(SpeechSamples& samples);
    void giveHeld(SpeechSamples& samples);

    SpeechAudio& source;
    const std::atomic<bool>& cancelled;
    SpeechDetector detector;
    SpeechSamples ahead; ///< read, and not decided on; what is before `next` has been
    std::size_t next = 0;
    SpeechSamples held;      ///< may prove to be speech
    SpeechSamples part;      ///< of the source
    std::size_t run = 0;     ///< samples that sounded like speech without a break
    std::size_t silence = 0; ///< samples of the silence under way that are still to be given
    bool is_speaking = false;
    bool has_begun = false;
    bool has_ended = false; ///< the source
    int code = 0;           ///< of its end
};

} // namespace speechRecognize
