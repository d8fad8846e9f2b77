#pragma once

#include "multimedia/speechrecognizer/speechservice.h"
#include "multimedia/speechrecognizer_linux/speechengine.h"
#include "multimedia/speechrecognizer_linux/speechlanguage.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <variant>
#include <vector>

namespace speechRecognize {

/// Speech recognition without a network, by the recognisers that are installed.
///
/// A task is recognised by the first of these that there is: a model for the language that was asked for, one
/// for the system's; of several engines that have one, the earlier engine's. Within an engine one for the
/// region goes before one for the language.
///
/// The user is not asked; authorisation means that some model is installed. Two threads, started with the
/// first task and sleeping between tasks: one decodes a task after the other, one reports, so that the end of
/// a cancelled task is told at once, whatever the decoder is at. A model is loaded for the first task that
/// wants it, and let go of when another one is wanted or there was no task for a minute.
class LocalSpeechService : public SpeechService
{
public:
    using Engines = std::vector<std::unique_ptr<SpeechEngine>>;

    /// @param engines  the better one first
    explicit LocalSpeechService(Engines engines);
    /// Cancels every task, and waits for their ends to be told.
    ~LocalSpeechService() override;

    /// Authorized or, with a line in the log that says what to install, Restricted.
    Authorization authorizationStatus() override;
    void requestAuthorization(AuthorizationHandler answered) override;
    bool isAvailable(const std::string& locale) override;
    std::vector<SpeechModel> models() override;
    SpeechModel answering() override;
    Task recognizeFile(const std::string& path, const std::string& locale, ResultHandler handler) override;
    Task recognizeBuffer(const PcmAudio& audio, const std::string& locale, ResultHandler handler) override;
    void cancel(Task task) override;
    /// Cancels every task, waits for their ends to be told, and ends the threads; the next task starts them.
    void end();

private:
    using Source = std::variant<std::string, PcmAudio>;
    struct Job
    {
        Task number = 0;
        Source source;
        SpeechLanguage language; ///< asked for, or the system's
        ResultHandler handler;
        std::atomic<bool> ended = false; ///< its end was told; changed under `mutex`
    };
    using JobPtr = std::shared_ptr<Job>;
    struct Report
    {
        JobPtr job;
        SpeechResult result;
        std::string error;
    };

    /// A model of an engine's.
    struct Choice
    {
        SpeechEngine* engine = nullptr;
        SpeechModel model;
    };

    /// What there is for a language, the first choice first.
    std::vector<Choice> choices(const SpeechLanguage& language);
    std::string whatToInstall() const;
    Task start(Source source, const std::string& locale, ResultHandler handler);
    bool startThreads();
    void decodeJobs();
    /// Null when the service ends.
    JobPtr nextJob();
    /// Both give the error that ended the job, none when its final result was reported.
    std::string run(const JobPtr& job);
    std::string transcribe(const JobPtr& job, SpeechAudio& audio);
    bool load(const SpeechLanguage& language);
    bool use(const Choice& choice);
    void deliverReports();
    void report(const JobPtr& job, const SpeechResult& result, const std::string& error);
    /// With `mutex` held.
    void enqueueReport(const JobPtr& job, const SpeechResult& result, const std::string& error);

    const Engines engines;
    std::unique_ptr<SpeechDecoder> decoder; ///< decoding thread only

    /// Guards what follows.
    std::mutex mutex;
    std::condition_variable job_arrived;
    std::condition_variable report_arrived;
    std::deque<JobPtr> waiting;
    JobPtr running;
    SpeechModel loaded; ///< of `decoder`, or of the one before
    std::deque<Report> reports;
    Task last_number = 0;
    bool stopping = false;
    bool decoding_ended = false;
    std::thread decoding;
    std::thread reporting;
};

} // namespace speechRecognize
