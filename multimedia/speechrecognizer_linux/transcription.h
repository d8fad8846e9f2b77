#pragma once

#include "multimedia/speechrecognizer_linux/speechengine.h"
#include "multimedia/speechrecognizer_linux/speechlanguage.h"

#include <functional>

namespace speechRecognize {

/// Turns one stream of sound into the results of its utterances. One thread.
///
/// An utterance ends where the decoder hears a pause; one that has none is cut, since the decoder's memory
/// grows with it.
class Transcription
{
public:
    using Report = std::function<void(const SpeechResult&)>;

    /// @param decoder   used alone while the object lives
    /// @param report    told every change of the text
    /// @param language  says how words are written
    /// @param beginning the first seconds, which are to be fed nevertheless
    Transcription(SpeechDecoder& decoder, Report report, SpeechLanguage language,
                  const SpeechSamples& beginning);
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

    SpeechDecoder& decoder;
    Report report;
    SpeechLanguage language;
    bool in_utterance = false;
    std::size_t utterance_samples = 0; ///< of speech
    std::size_t unseen_samples = 0;    ///< of speech, since the last look at the words
    bool has_words = false;            ///< some utterance before had
    bool is_told = false;              ///< words of this utterance have been reported
    SpeechResult last;                 ///< what was reported last
    std::string last_words;
};

} // namespace speechRecognize
