#pragma once

#include <string>
#include <vector>

namespace speechRecognize {

/// A folder that calls itself a model of Vosk.
struct VoskModel
{
    std::string path;
    std::string language; ///< "en_US", or "en" where the name tells no region
};

/// The models in `folders`, those of an earlier folder first; within one those for small machines first, then
/// by name, the later version first. Only their names have been looked at: they are
/// "vosk-model[-small]-LANGUAGE[-REGION]-VERSION".
std::vector<VoskModel> findVoskModels(const std::vector<std::string>& folders);

/// What would make the engine end the process: files that are missing or empty, and parts that belong to
/// different models. Reads a few megabytes. Says nothing of the numbers inside.
/// @return what is wrong with it, empty for nothing
std::string faultOfVoskModel(const std::string& path);

} // namespace speechRecognize
