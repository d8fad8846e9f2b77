#include "multimedia/speechrecognizer_linux/transcription.h"

#include <algorithm>

namespace speechRecognize {

namespace {

using Heard = SpeechDecoder::Heard;

constexpr std::size_t kLongestUtterance = std::size_t(kSpeechRate) * 30;
/// Speech between two looks at the words.
constexpr std::size_t kLook = kSpeechRate / 4;

} // namespace

Transcription::Transcription(SpeechDecoder& decoder, Report report, SpeechLanguage language,
                             const SpeechSamples& beginning)
    : decoder(decoder)
    , report(std::move(report))
    , language(std::move(language))
{
    decoder.startStream(beginning);
}

Transcription::~Transcription()
{
    if (in_utterance)
        decoder.endUtterance();
}

bool Transcription::startUtterance()
{
    in_utterance = decoder.startUtterance();
    utterance_samples = 0;
    unseen_samples = 0;
    is_told = false;
    last_words.clear();
    return in_utterance;
}

bool Transcription::feed(const std::int16_t* samples, std::size_t count)
{
    if (!in_utterance && !startUtterance())
        return false;
    const Heard heard = decoder.process(samples, count);
    if (heard == Heard::Failure)
        return false;
    if (heard == Heard::Speech) {
        utterance_samples += count;
        unseen_samples += count;
    }
    if (heard == Heard::Ending || utterance_samples > kLongestUtterance)
        endUtterance();
    else if (unseen_samples >= kLook)
        reportWords(decoder.words());
    return true;
}

void Transcription::endUtterance()
{
    decoder.endUtterance();
    in_utterance = false;
    reportWords(decoder.words());
    has_words = has_words || !last_words.empty();
}

void Transcription::reportWords(const std::string& words)
{
    unseen_samples = 0;
    if (words == last_words)
        return;
    last_words = words;
    if (!is_told) {
        is_told = true;
        // The next count may be no lower than the last one of the utterance before.
        if (has_words)
            report({});
        last = {};
    }
    const auto count = words.empty() ? 0 : std::count(words.begin(), words.end(), ' ') + 1;
    last.segment_count = std::max<std::int64_t>(last.segment_count, count);
    const bool needs_blank = has_words && !words.empty() && language.writesBlanks();
    last.text = (needs_blank ? " " : "") + written(words, language);
    report(last);
}

void Transcription::finish()
{
    if (in_utterance)
        endUtterance();
    last.is_final = true;
    report(last);
}

} // namespace speechRecognize
