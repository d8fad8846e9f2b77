#pragma once

#include "multimedia/speechrecognizer_linux/speechengine.h"

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
class PocketSphinxDecoder : public SpeechDecoder
{
public:
    /// Whether the files of the model are in the folder.
    static bool hasModel(const std::string& model_folder);
    /// Null, and a line in the log, when it cannot be loaded.
    static std::unique_ptr<PocketSphinxDecoder> load(const std::string& model_folder);

    /// Adjusts itself to the voice and the microphone of the beginning. Far more words are understood for it:
    /// the recogniser's own adjustment has hardly begun when a voice message is over.
    void startStream(const SpeechSamples& beginning) override;
    bool startUtterance() override;
    /// A pause is known half a second after it began.
    Heard process(const std::int16_t* samples, std::size_t count) override;
    /// Understands the utterance as a whole, which may change its words and takes time, as a rule a tenth of
    /// its length.
    void endUtterance() override;
    /// In lower case.
    std::string words() override;

private:
    PocketSphinxDecoder() = default;
    bool open(const std::string& model_folder);

    std::unique_ptr<cmd_ln_t, detail::SphinxDeleter> config;
    std::unique_ptr<ps_decoder_t, detail::SphinxDeleter> decoder;
    std::unique_ptr<fe_t, detail::SphinxDeleter> front_end; ///< hears the beginning
    std::vector<float> initial_mean;                        ///< cepstrum of a usual voice, from the model
    bool was_speech = false;                                ///< of the utterance, at its last sound
};

/// pocketsphinx, where the package of its model of American English is installed.
class PocketSphinxEngine : public SpeechEngine
{
public:
    PocketSphinxEngine();
    explicit PocketSphinxEngine(std::string model_folder)
        : model_folder(std::move(model_folder))
    {}

    std::vector<SpeechModel> models() override;
    std::unique_ptr<SpeechDecoder> load(const SpeechModel& model) override;
    std::string whatToInstall() const override;

private:
    const std::string model_folder;
};

} // namespace speechRecognize
