#include "multimedia/speechrecognizer_linux/voskengine.h"

#include "multimedia/base/warning.h"
#include "multimedia/speechrecognizer_linux/voskmodel.h"

#include <QtCore/QByteArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QString>

#include <cstdlib>

#include <dlfcn.h>

// The interface of the engine: opaque handles and numbers, the same in every version since 0.3.31.
struct VoskModelHandle;
struct VoskRecognizerHandle;

namespace speechRecognize {

/// The functions of the engine that are called. The library stays in the process: it is not made to leave.
struct VoskLibrary
{
    VoskModelHandle* (*model_new)(const char* path);
    void (*model_free)(VoskModelHandle* model);
    VoskRecognizerHandle* (*recognizer_new)(VoskModelHandle* model, float sample_rate);
    void (*recognizer_free)(VoskRecognizerHandle* recognizer);
    int (*accept_waveform)(VoskRecognizerHandle* recognizer, const short* samples, int count);
    const char* (*result)(VoskRecognizerHandle* recognizer);
    const char* (*partial_result)(VoskRecognizerHandle* recognizer);
    const char* (*final_result)(VoskRecognizerHandle* recognizer);
    void (*set_log_level)(int level);
};

namespace {

constexpr int kNoLog = -1;

std::vector<std::string> homeFolders()
{
    const char* home = std::getenv("HOME");
    if (!home)
        return {};
    return {std::string(home) + "/.cache/vosk", std::string(home) + "/.local/share/vosk"};
}

std::vector<std::string> usualLibraries()
{
    std::vector<std::string> libraries = {MULTIMEDIA_VOSK_LIBRARY};
    for (const std::string& folder : homeFolders())
        libraries.push_back(folder + "/libvosk.so");
    return libraries;
}

std::vector<std::string> usualFolders()
{
    std::vector<std::string> folders;
    if (const char* path = std::getenv("VOSK_MODEL_PATH"))
        folders.emplace_back(path);
    folders.emplace_back("/usr/share/vosk");
    const std::vector<std::string> home = homeFolders();
    folders.insert(folders.end(), home.begin(), home.end());
    return folders;
}

std::string joined(const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name;
    return text;
}

template<typename Function>
bool find(void* handle, const char* name, Function& function)
{
    function = reinterpret_cast<Function>(dlsym(handle, name));
    return function != nullptr;
}

/// Null when a function is missing.
std::unique_ptr<const VoskLibrary> functionsOf(void* handle)
{
    auto library = std::make_unique<VoskLibrary>();
    if (!find(handle, "vosk_model_new", library->model_new) ||
        !find(handle, "vosk_model_free", library->model_free) ||
        !find(handle, "vosk_recognizer_new", library->recognizer_new) ||
        !find(handle, "vosk_recognizer_free", library->recognizer_free) ||
        !find(handle, "vosk_recognizer_accept_waveform_s", library->accept_waveform) ||
        !find(handle, "vosk_recognizer_result", library->result) ||
        !find(handle, "vosk_recognizer_partial_result", library->partial_result) ||
        !find(handle, "vosk_recognizer_final_result", library->final_result) ||
        !find(handle, "vosk_set_log_level", library->set_log_level))
        return nullptr;
    library->set_log_level(kNoLog);
    return library;
}

class VoskDecoder : public SpeechDecoder
{
public:
    VoskDecoder(const VoskLibrary& library, VoskModelHandle* model)
        : library(library)
        , model(model)
    {}
    ~VoskDecoder() override
    {
        endStream();
        library.model_free(model);
    }
    VoskDecoder(const VoskDecoder&) = delete;
    VoskDecoder& operator=(const VoskDecoder&) = delete;

    /// The engine follows the voice by itself.
    void startStream(const SpeechSamples& /*beginning*/) override
    {
        endStream();
        recognizer = library.recognizer_new(model, float(kSpeechRate));
    }
    bool startUtterance() override
    {
        has_ended = false;
        last_words.clear();
        return recognizer != nullptr;
    }
    Heard process(const std::int16_t* samples, std::size_t count) override
    {
        const int answer = library.accept_waveform(recognizer, samples, int(count));
        if (answer < 0)
            return Heard::Failure;
        if (answer == 0)
            return Heard::Speech;
        has_ended = true;
        last_words = wordsIn(library.result(recognizer), "text");
        return Heard::Ending;
    }
    void endUtterance() override
    {
        if (!has_ended)
            last_words = wordsIn(library.final_result(recognizer), "text");
        has_ended = true;
    }
    std::string words() override
    {
        return has_ended ? last_words : wordsIn(library.partial_result(recognizer), "partial");
    }

private:
    void endStream()
    {
        if (recognizer)
            library.recognizer_free(recognizer);
        recognizer = nullptr;
    }
    const VoskLibrary& library;
    VoskModelHandle* const model;
    VoskRecognizerHandle* recognizer = nullptr; ///< of the stream
    bool has_ended = false;                     ///< the utterance
    std::string last_words;
};

} // namespace

std::string wordsIn(const char* json, const char* key)
{
    const QJsonObject object = QJsonDocument::fromJson(QByteArray(json)).object();
    return object[QLatin1String(key)].toString().simplified().toStdString();
}

VoskEngine::VoskEngine()
    : VoskEngine(usualLibraries(), usualFolders())
{}

VoskEngine::VoskEngine(std::vector<std::string> libraries, std::vector<std::string> folders)
    : libraries(std::move(libraries))
    , folders(std::move(folders))
{}

VoskEngine::~VoskEngine() = default;

std::vector<SpeechModel> VoskEngine::models()
{
    const std::lock_guard lock(mutex);
    std::vector<SpeechModel> models;
    for (const VoskModel& found : findVoskModels(folders)) {
        if (failed.count(found.path) > 0)
            continue;
        const std::string fault = faultOfVoskModel(found.path);
        if (fault.empty())
            models.push_back({"Vosk", found.language, found.path});
        else
            warnOnce("the speech model " + found.path + " is passed over: " + fault);
    }
    if (models.empty() || openLibrary())
        return models;
    warnOnce("there are speech models of Vosk, and no library of it: " + joined(libraries));
    return {};
}

/// With `mutex` held; null when there is none.
const VoskLibrary* VoskEngine::openLibrary()
{
    for (auto path = libraries.begin(); path != libraries.end() && !library; ++path) {
        // Not for others: thousands of names are in it, those of a BLAS among them.
        void* handle = dlopen(path->c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle)
            continue;
        library = functionsOf(handle);
        if (!library)
            warnOnce(*path + " is no library of Vosk 0.3.31 or later");
    }
    return library.get();
}

std::unique_ptr<SpeechDecoder> VoskEngine::load(const SpeechModel& model)
{
    const VoskLibrary* loaded = nullptr;
    {
        const std::lock_guard lock(mutex);
        loaded = openLibrary();
    }
    VoskModelHandle* handle = loaded ? loaded->model_new(model.path.c_str()) : nullptr;
    if (handle)
        return std::make_unique<VoskDecoder>(*loaded, handle);
    multimedia::warning("load", "cannot load the speech model in " + model.path);
    const std::lock_guard lock(mutex);
    failed.insert(model.path);
    return nullptr;
}

void VoskEngine::warnOnce(const std::string& what)
{
    if (told.insert(what).second)
        multimedia::warning("models", what);
}

std::string VoskEngine::whatToInstall() const
{
    return "for any language install Vosk, whose library is looked for as " + joined(libraries) +
           " and whose models in " + joined(folders);
}

} // namespace speechRecognize
