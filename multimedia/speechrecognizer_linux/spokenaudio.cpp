#include "multimedia/speechrecognizer_linux/spokenaudio.h"

#include "multimedia/base/warning.h"

#include <opus.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace speechRecognize {

namespace {

constexpr std::size_t seconds(double count)
{
    return std::size_t(count * kSpeechRate);
}

// At this rate a fair doubt goes to speech.
constexpr int kBitrate = 16000;
// Where builds of Opus without floating-point numbers listen, too.
constexpr int kComplexity = 10;
// Longer than any packet; from short room the encoder concludes on music.
constexpr std::size_t kPacketRoom = 1500;
/// Configurations of packets below it are coded by linear prediction.
constexpr int kFirstTransform = 16;

// The network thinks of speech before it has heard enough.
constexpr std::size_t kListenAhead = seconds(5);
constexpr std::size_t kShortest = seconds(1);
constexpr std::size_t kBefore = seconds(2);
/// What sounds like speech is kept for this long while its zero crossings are waited for.
constexpr std::size_t kDoubt = seconds(2);
// Each recogniser ends an utterance after less.
constexpr std::size_t kSilence = seconds(1.5);
/// What one call gives at least, but at the end.
constexpr std::size_t kPiece = seconds(0.1);

constexpr std::size_t kCrossingsPiece = seconds(0.02);
constexpr std::size_t kCrossingsPieces = seconds(5) / kCrossingsPiece;
/// The deviation from which on it is speech. Of 894 s of speech, by people and machines, none is lost up to
/// 0.08; with noise 10 dB below the speech none up to 0.065.
constexpr double kLeastDeviation = 0.065;
/// Where no more will come.
constexpr double kLeastDeviationAtEnd = kLeastDeviation / 2;
/// Of the high pass: exp(-2 pi 150 Hz / 16 kHz).
constexpr double kDecay = 0.9428;

} // namespace

void detail::OpusDeleter::operator()(OpusEncoder* encoder) const
{
    opus_encoder_destroy(encoder);
}

SpeechDetector::SpeechDetector()
    : encoder(opus_encoder_create(kSpeechRate, 1, OPUS_APPLICATION_AUDIO, nullptr))
{
    if (!encoder) {
        multimedia::warning("SpeechDetector", "cannot tell speech from music");
        return;
    }
    opus_encoder_ctl(encoder.get(), OPUS_SET_BITRATE(kBitrate));
    opus_encoder_ctl(encoder.get(), OPUS_SET_COMPLEXITY(kComplexity));
    // Nobody hears the packets, so they may be cheap to make; the network hears everything.
    opus_encoder_ctl(encoder.get(), OPUS_SET_MAX_BANDWIDTH(OPUS_BANDWIDTH_NARROWBAND));
}

bool SpeechDetector::hears(const std::int16_t* frame)
{
    if (!encoder)
        return true;
    std::array<unsigned char, kPacketRoom> packet = {};
    const int size = opus_encode(encoder.get(), frame, int(kFrame), packet.data(), int(packet.size()));
    return size < 1 || packet[0] >> 3 < kFirstTransform;
}

double ZeroCrossings::HighPass::next(double in)
{
    last_out = kDecay * (last_out + in - last_in);
    last_in = in;
    return last_out;
}

void ZeroCrossings::add(const std::int16_t* samples, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        const bool is_negative = filter[1].next(filter[0].next(samples[i])) < 0;
        crossings += is_negative == was_negative ? 0 : 1;
        was_negative = is_negative;
        if (++position < kCrossingsPiece)
            continue;
        rates.push_back(double(crossings) / double(kCrossingsPiece));
        if (rates.size() > kCrossingsPieces)
            rates.pop_front();
        position = crossings = 0;
    }
}

double ZeroCrossings::deviation() const
{
    double sum = 0;
    double squares = 0;
    for (const double rate : rates) {
        sum += rate;
        squares += rate * rate;
    }
    const double mean = sum / double(rates.size());
    return std::sqrt(std::max(squares / double(rates.size()) - mean * mean, 0.0));
}

int SpokenAudio::read(SpeechSamples& samples)
{
    samples.clear();
    if (!has_begun)
        listenAhead();
    while (samples.size() < kPiece) {
        if (cancelled)
            return AVERROR_EXIT;
        while (!has_ended && ahead.size() - next < SpeechDetector::kFrame)
            readSource();
        if (ahead.size() - next >= SpeechDetector::kFrame) {
            takeFrame(samples);
            continue;
        }
        held.insert(held.end(), ahead.begin() + std::ptrdiff_t(next), ahead.end());
        next = ahead.size();
        if (run > 0 && (run < kShortest || crossings.deviation() >= kLeastDeviationAtEnd))
            giveHeld(samples);
        held.clear();
        return samples.empty() ? code : 0;
    }
    return 0;
}

void SpokenAudio::readSource()
{
    ahead.erase(ahead.begin(), ahead.begin() + std::ptrdiff_t(next));
    next = 0;
    code = source.read(part);
    has_ended = code < 0 || part.empty();
    ahead.insert(ahead.end(), part.begin(), part.end());
}

/// Lets the detector hear the beginning before it is asked.
void SpokenAudio::listenAhead()
{
    has_begun = true;
    while (!has_ended && ahead.size() < kListenAhead && !cancelled)
        readSource();
    for (std::size_t i = 0; i + SpeechDetector::kFrame <= ahead.size(); i += SpeechDetector::kFrame)
        detector.hears(&ahead[i]);
}

void SpokenAudio::takeFrame(SpeechSamples& samples)
{
    constexpr std::size_t count = SpeechDetector::kFrame;
    const std::int16_t* frame = &ahead[next];
    next += count;
    held.insert(held.end(), frame, frame + count);
    run = detector.hears(frame) ? run + count : 0;
    crossings.add(frame, count);
    is_speaking = run > 0 && (is_speaking || (run >= kShortest && crossings.deviation() >= kLeastDeviation));
    if (is_speaking) {
        giveHeld(samples);
        silence = kSilence;
    } else if (held.size() > kBefore + std::clamp(run, kShortest, kDoubt)) {
        held.erase(held.begin(), held.begin() + std::ptrdiff_t(count));
        const std::size_t given = std::min(count, silence);
        samples.insert(samples.end(), given, 0);
        silence -= given;
    }
}

void SpokenAudio::giveHeld(SpeechSamples& samples)
{
    samples.insert(samples.end(), held.begin(), held.end());
    held.clear();
}

} // namespace speechRecognize
