#pragma once

#include "multimedia/speechrecognizer_linux/speechaudio.h"

#include <cstddef>
#include <memory>
#include <string>

using cmd_ln_t = struct cmd_ln_s;
using fe_t = struct fe_s;
using ps_decoder_t = struct ps_decoder_s;

namespace speechRecognize {

namespace detail {
struct SphinxDeleter
{
    void operator()(cmd_ln_t* config) const;
    void operator()(fe_t* front_end) const;
    void operator()(ps_decoder_t* decoder) const;
};
} // namespace detail

/// pocketsphinx with its model of American English: 105 MB of memory, loaded in a third of a second. One
/// thread at a time.
class PocketSphinxDecoder
{
public:
    /// Whether the files of the model are in the folder.
    static bool hasModel(const std::string& model_folder);
    /// Null, and a line in the log, when it cannot be loaded.
    static std::unique_ptr<PocketSphinxDecoder> load(const std::string& model_folder);

    /// Forgets all sound so far, and adjusts itself to the voice and the microphone in `beginning`, the first
    /// seconds of what will be decoded. Far more words are understood for it: the recogniser's own adjustment
    /// has hardly begun when a voice message is over.
    void startStream(const SpeechSamples& beginning);
    bool startUtterance();
    bool process(const std::int16_t* samples, std::size_t count);
    /// Whether the last sound was speech. A pause is known half a second after it began.
    bool isSpeech() const;
    /// Words of the utterance under way, or of the last one when that has ended; in lower case, one blank
    /// between them.
    std::string words() const;
    /// Understands the utterance as a whole, which may change its words and takes time, as a rule a tenth of
    /// its length.
    void endUtterance();

private:
    PocketSphinxDecoder() = default;
    bool open(const std::string& model_folder);

    std::unique_ptr<cmd_ln_t, detail::SphinxDeleter> config;
    std::unique_ptr<ps_decoder_t, detail::SphinxDeleter> decoder;
    std::unique_ptr<fe_t, detail::SphinxDeleter> front_end; ///< hears the beginning
    std::vector<float> initial_mean;                        ///< cepstrum of a usual voice, from the model
};

} // namespace speechRecognize
