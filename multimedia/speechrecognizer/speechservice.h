#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace speechRecognize {

/// Samples in memory.
struct PcmAudio
{
    enum class Format { Float32 = 1, Float64 = 2, Int16 = 3, Int32 = 4 };

    Format format = Format::Int16; ///< in host byte order
    double sample_rate = 0;        ///< Hz
    int channels = 0;
    /// Without it all bytes are the samples of one channel, whatever `channels` says.
    bool interleaved = false;
    const std::uint8_t* data = nullptr;
    std::size_t size = 0; ///< bytes; a last frame that is not whole is left out
    /// Keeps `data` alive.
    std::shared_ptr<const void> owner;
};

/// What a recogniser understands one language with.
struct SpeechModel
{
    std::string recognizer; ///< its name, as people know it
    std::string language;   ///< "en_US", or "en" where no region is known
    std::string path;       ///< file or folder
};

/// What has been understood of one utterance, the stretch of speech between two pauses.
struct SpeechResult
{
    /// Words so far. It never falls within an utterance, and falls when the next one begins: that is how
    /// utterances are told apart.
    std::int64_t segment_count = 0;
    /// UTF-8; replaces what was told of the utterance before. It begins with what separates it from the
    /// utterance before.
    std::string text;
    /// The task has ended.
    bool is_final = false;
};

/// What recognises speech: the operations that are bound to the system, and nothing of Qt.
///
/// Operations may be called from any thread and do not block. Handlers of results are called on a thread of
/// the service, one call after another, never from within an operation; they may call operations.
class SpeechService
{
public:
    enum class Authorization { NotDetermined = 0, Denied = 1, Restricted = 2, Authorized = 3 };
    using AuthorizationHandler = std::function<void(Authorization)>;
    /// Called any number of times with an empty error and a result that is not final, and then once more
    /// with a final result or an error. That last call comes for every task that was started, also for one
    /// that is cancelled or fails. With an error the result is void.
    using ResultHandler = std::function<void(const SpeechResult& result, const std::string& error)>;
    /// Number of a task; 0 is none.
    using Task = std::uint64_t;

    virtual ~SpeechService() = default;

    /// The service that recognisers use: the system's, until another one is put in its place.
    static SpeechService& instance();
    /// Puts `service`, which is not taken over, in the place of the system's; null brings that back. Only
    /// while no task runs.
    static void setInstance(SpeechService* service);

    virtual Authorization authorizationStatus() = 0;
    /// Asks the user; calls back once, on any thread.
    virtual void requestAuthorization(AuthorizationHandler answered) = 0;
    /// Whether there is a recogniser for a locale such as "en_US", and it can work now.
    virtual bool isAvailable(const std::string& locale) = 0;
    /// Everything that there is to recognise with, the first choice for a language first.
    virtual std::vector<SpeechModel> models() = 0;
    /// What the last task that has begun is recognised with; without a name when there is none for it.
    virtual SpeechModel answering() = 0;
    /// @param path    UTF-8
    /// @param locale  one that is available, or empty for that of the system
    /// @return 0 when no task was started; then the handler is not called
    virtual Task recognizeFile(const std::string& path, const std::string& locale, ResultHandler handler) = 0;
    virtual Task recognizeBuffer(const PcmAudio& audio, const std::string& locale, ResultHandler handler) = 0;
    /// Makes the task end soon, with an error. Does nothing to one that has ended.
    virtual void cancel(Task task) = 0;
};

/// The service of this system; each has a folder of its own.
SpeechService& systemSpeechService();

} // namespace speechRecognize
