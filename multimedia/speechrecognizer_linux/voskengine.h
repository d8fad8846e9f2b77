#pragma once

#include "multimedia/speechrecognizer_linux/speechengine.h"

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace speechRecognize {

struct VoskLibrary;

/// The words that stand under `key` in what Vosk has heard, in JSON; none where it is something else.
std::string wordsIn(const char* json, const char* key);

/// Vosk, where the user has installed it and at least one model. It is loaded while the process runs: nothing
/// is linked, and without it there are no models.
///
/// A model that would make the engine end the process is named in the log, once, and passed over.
class VoskEngine : public SpeechEngine
{
public:
    /// The usual places: the library as the dynamic linker finds it or beside the user's models, and models
    /// in `$VOSK_MODEL_PATH`, `/usr/share/vosk`, `~/.cache/vosk` and `~/.local/share/vosk`.
    VoskEngine();
    /// @param libraries  paths, or names for the dynamic linker; the first one that can be loaded is used
    /// @param folders    of models
    VoskEngine(std::vector<std::string> libraries, std::vector<std::string> folders);
    ~VoskEngine() override;

    std::vector<SpeechModel> models() override;
    std::unique_ptr<SpeechDecoder> load(const SpeechModel& model) override;
    std::string whatToInstall() const override;

private:
    const VoskLibrary* openLibrary();
    void warnOnce(const std::string& what);

    const std::vector<std::string> libraries;
    const std::vector<std::string> folders;

    std::mutex mutex; ///< guards what follows
    std::unique_ptr<const VoskLibrary> library;
    std::set<std::string> told;   ///< in the log
    std::set<std::string> failed; ///< paths of models that could not be loaded
};

} // namespace speechRecognize
