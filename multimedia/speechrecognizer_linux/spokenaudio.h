#pragma once

#include "multimedia/speechrecognizer_linux/speechaudio.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <deque>
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

/// Tells a voice from an instrument that sings like one, by how much the rate of zero crossings varies.
///
/// Who speaks goes from vowels, a few crossings a millisecond at most, to hissing consonants and back several
/// times a second; a melody stays where it is (J. Saunders, "Real-time discrimination of broadcast
/// speech/music", ICASSP 1996). What is below 150 Hz, as hum and wind, is taken out first. One thread.
class ZeroCrossings
{
public:
    void add(const std::int16_t* samples, std::size_t count);
    /// Standard deviation of the rate, crossings per sample, in the last five seconds.
    double deviation() const;

private:
    /// First-order high pass.
    struct HighPass
    {
        double last_in = 0;
        double last_out = 0;
        double next(double in);
    };

    std::array<HighPass, 2> filter;
    bool was_negative = false;
    std::size_t position = 0;  ///< samples of the piece under way
    std::size_t crossings = 0; ///< in it
    std::deque<double> rates;  ///< of the last pieces, crossings per sample
};

/// Sound without its music: where nobody speaks there is a silence, of a second and a half at most. One
/// thread.
///
/// What the recognisers get is whole: speech with two seconds before it, in which the detector may have been
/// late. A second of what sounds like speech must come together, since music does so for moments, and by then
/// or later its zero crossings must vary; at the end of the sound less of both is enough.
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
    ZeroCrossings crossings;
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
