#pragma once

#include "multimedia/speechrecognizer_linux/pocketsphinxdecoder.h"

#include <functional>

namespace speechRecognize {

/// Turns one stream of sound into the results of its utterances. One thread.
///
/// An utterance ends at a pause of half a second; one that has none is cut, since the decoder's memory grows
/// with it.
class Transcription
{
public:
    using Report = std::function<void(const SpeechResult&)>;

    /// @param decoder   used alone while the object lives
    /// @param report    told every change of the text
    /// @param beginning the first seconds, which are to be fed nevertheless
    Transcription(PocketSphinxDecoder& decoder, Report report, const SpeechSamples& beginning);
    /// Leaves the decoder ready for another stream.
    ~Transcription();
    Transcription(const Transcription&) = delete;
    Transcription& operator=(const Transcription&) = delete;

    /// About a tenth of a second. False when the recogniser fails.
    bool feed(const std::int16_t* samples, std::size_t count);
    /// The end of the sound; reports the final result.
    void finish();

private:
    bool startUtterance();
    void endUtterance();
    void reportWords(const std::string& words);

    PocketSphinxDecoder& decoder;
    Report report;
    bool in_utterance = false;
    bool was_speech = false;
    std::size_t utterance_samples = 0; ///< of speech
    std::size_t unseen_samples = 0;    ///< of speech, since the last look at the words
    bool has_words = false;            ///< some utterance before had
    bool is_told = false;              ///< words of this utterance have been reported
    SpeechResult last;                 ///< what was reported last
    std::string last_words;
};

} // namespace speechRecognize
