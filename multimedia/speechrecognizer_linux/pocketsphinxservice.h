#pragma once

#include "multimedia/speechrecognizer/speechservice.h"
#include "multimedia/speechrecognizer_linux/pocketsphinxdecoder.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <variant>

namespace speechRecognize {

/// Speech recognition without a network, by pocketsphinx and its packaged model of American English, which is
/// what every locale gets.
///
/// The user is not asked; authorisation means that the model is installed. Two threads, started with the
/// first task and sleeping between tasks: one decodes a task after the other, one reports, so that the end of
/// a cancelled task is told at once, whatever the decoder is at. The model is loaded for the first task and
/// let go of when there was none for a minute.
class PocketSphinxService : public SpeechService
{
public:
    PocketSphinxService();
    explicit PocketSphinxService(std::string model_folder);
    /// Cancels every task, and waits for their ends to be told.
    ~PocketSphinxService() override;

    /// Authorized or, with a line in the log that says what to install, Restricted.
    Authorization authorizationStatus() override;
    void requestAuthorization(AuthorizationHandler answered) override;
    /// True for every kind of English.
    bool isAvailable(const std::string& locale) override;
    Task recognizeFile(const std::string& path, const std::string& locale, ResultHandler handler) override;
    Task recognizeBuffer(const PcmAudio& audio, const std::string& locale, ResultHandler handler) override;
    void cancel(Task task) override;

private:
    using Source = std::variant<std::string, PcmAudio>;
    struct Job
    {
        Task number = 0;
        Source source;
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

    Task start(Source source, ResultHandler handler);
    bool startThreads();
    void decodeJobs();
    /// Null when the service ends.
    JobPtr nextJob();
    /// Both give the error that ended the job, none when its final result was reported.
    std::string run(const JobPtr& job);
    std::string transcribe(const JobPtr& job, SpeechAudio& audio);
    void deliverReports();
    void report(const JobPtr& job, const SpeechResult& result, const std::string& error);
    /// With `mutex` held.
    void enqueueReport(const JobPtr& job, const SpeechResult& result, const std::string& error);

    const std::string model_folder;
    std::unique_ptr<PocketSphinxDecoder> decoder; ///< decoding thread only

    /// Guards what follows.
    std::mutex mutex;
    std::condition_variable job_arrived;
    std::condition_variable report_arrived;
    std::deque<JobPtr> waiting;
    JobPtr running;
    std::deque<Report> reports;
    Task last_number = 0;
    bool stopping = false;
    bool decoding_ended = false;
    std::thread decoding;
    std::thread reporting;
};

} // namespace speechRecognize
