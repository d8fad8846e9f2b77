#pragma once

#include "multimedia/speechrecognizer_linux/speechaudio.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace speechRecognize {

/// A recogniser with its model, loaded. One thread at a time.
///
/// Per stream of sound: `startStream`; per utterance: `startUtterance`, any number of `process`,
/// `endUtterance`.
class SpeechDecoder
{
public:
    enum class Heard {
        Failure,
        Pause, ///< nobody speaks
        Speech,
        Ending, ///< somebody has spoken and pauses: the utterance is to be ended
    };

    virtual ~SpeechDecoder() = default;
    /// Forgets all sound so far.
    /// @param beginning  the first seconds of what will be decoded
    virtual void startStream(const SpeechSamples& beginning) = 0;
    virtual bool startUtterance() = 0;
    /// About a tenth of a second.
    virtual Heard process(const std::int16_t* samples, std::size_t count) = 0;
    /// The utterance has all its sound: its words are final.
    virtual void endUtterance() = 0;
    /// Words of the utterance under way, or of the last one when that has ended: UTF-8, one blank between
    /// them.
    virtual std::string words() = 0;
};

/// A kind of recogniser: which models there are for it, and how they are loaded. Any thread, but for `load`.
class SpeechEngine
{
public:
    virtual ~SpeechEngine() = default;
    /// The models that can be loaded, the better one of a language first.
    virtual std::vector<SpeechModel> models() = 0;
    /// Null, and a line in the log, when it cannot be loaded.
    virtual std::unique_ptr<SpeechDecoder> load(const SpeechModel& model) = 0;
    /// What is to be installed, and where it is looked for: the end of a line in the log.
    virtual std::string whatToInstall() const = 0;
};

} // namespace speechRecognize
