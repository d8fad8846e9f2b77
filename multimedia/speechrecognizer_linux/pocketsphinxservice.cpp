#include "multimedia/speechrecognizer_linux/pocketsphinxservice.h"

#include "multimedia/base/warning.h"
#include "multimedia/speechrecognizer_linux/transcription.h"

#include <algorithm>
#include <chrono>
#include <system_error>

#include <malloc.h>

namespace speechRecognize {

namespace {

constexpr auto kModelFolder = POCKETSPHINX_MODEL_DIR "/en-us";
constexpr auto kKeepModel = std::chrono::minutes(1);
/// What the decoder adjusts itself to.
constexpr std::size_t kBeginning = std::size_t(kSpeechRate) * 30;
constexpr std::size_t kPiece = kSpeechRate / 10;

} // namespace

SpeechService& systemSpeechService()
{
    static PocketSphinxService service;
    return service;
}

PocketSphinxService::PocketSphinxService()
    : PocketSphinxService(kModelFolder)
{}

PocketSphinxService::PocketSphinxService(std::string model_folder)
    : model_folder(std::move(model_folder))
{}

PocketSphinxService::~PocketSphinxService()
{
    {
        const std::lock_guard lock(mutex);
        stopping = true;
        if (running)
            enqueueReport(running, {}, "the service ends");
        for (const JobPtr& job : waiting)
            enqueueReport(job, {}, "the service ends");
        waiting.clear();
        job_arrived.notify_one();
        report_arrived.notify_one();
    }
    if (decoding.joinable())
        decoding.join();
    if (reporting.joinable())
        reporting.join();
}

SpeechService::Authorization PocketSphinxService::authorizationStatus()
{
    if (PocketSphinxDecoder::hasModel(model_folder))
        return Authorization::Authorized;
    multimedia::warning("authorizationStatus",
                        "no speech model in " + model_folder + ": install the package pocketsphinx-en-us");
    return Authorization::Restricted;
}

void PocketSphinxService::requestAuthorization(AuthorizationHandler answered)
{
    answered(authorizationStatus());
}

bool PocketSphinxService::isAvailable(const std::string& locale)
{
    return locale.substr(0, locale.find_first_of("_-")) == "en" &&
           PocketSphinxDecoder::hasModel(model_folder);
}

SpeechService::Task PocketSphinxService::recognizeFile(const std::string& path, const std::string& /*locale*/,
                                                       ResultHandler handler)
{
    return start(path, std::move(handler));
}

SpeechService::Task PocketSphinxService::recognizeBuffer(const PcmAudio& audio, const std::string& /*locale*/,
                                                         ResultHandler handler)
{
    return start(audio, std::move(handler));
}

SpeechService::Task PocketSphinxService::start(Source source, ResultHandler handler)
{
    const std::lock_guard lock(mutex);
    if (!startThreads())
        return 0;
    const auto job = std::make_shared<Job>();
    job->number = ++last_number;
    job->source = std::move(source);
    job->handler = std::move(handler);
    waiting.push_back(job);
    job_arrived.notify_one();
    return job->number;
}

bool PocketSphinxService::startThreads()
{
    try {
        if (!decoding.joinable())
            decoding = std::thread([this] { decodeJobs(); });
        if (!reporting.joinable())
            reporting = std::thread([this] { deliverReports(); });
        return true;
    } catch (const std::system_error& error) {
        multimedia::warning("startThreads", error.what());
        return false;
    }
}

void PocketSphinxService::cancel(Task task)
{
    const std::lock_guard lock(mutex);
    const auto is_meant = [task](const JobPtr& job) { return job && job->number == task; };
    if (is_meant(running)) {
        enqueueReport(running, {}, "cancelled");
        return;
    }
    const auto found = std::find_if(waiting.begin(), waiting.end(), is_meant);
    if (found == waiting.end())
        return;
    enqueueReport(*found, {}, "cancelled");
    waiting.erase(found);
}

void PocketSphinxService::decodeJobs()
{
    while (const JobPtr job = nextJob()) {
        const std::string error = run(job);
        if (!error.empty())
            report(job, {}, error);
    }
    const std::lock_guard lock(mutex);
    decoding_ended = true;
    report_arrived.notify_one();
}

PocketSphinxService::JobPtr PocketSphinxService::nextJob()
{
    std::unique_lock lock(mutex);
    running.reset();
    const auto has_work = [this] { return stopping || !waiting.empty(); };
    if (decoder && !job_arrived.wait_for(lock, kKeepModel, has_work)) {
        decoder.reset();
        malloc_trim(0); // the heap would keep most of it
    }
    job_arrived.wait(lock, has_work);
    if (stopping)
        return nullptr;
    running = waiting.front();
    waiting.pop_front();
    return running;
}

std::string PocketSphinxService::run(const JobPtr& job)
{
    if (!decoder)
        decoder = PocketSphinxDecoder::load(model_folder);
    if (!decoder)
        return "no speech model";
    if (const auto* pcm = std::get_if<PcmAudio>(&job->source)) {
        BufferAudio audio(*pcm);
        return transcribe(job, audio);
    }
    const auto& path = std::get<std::string>(job->source);
    FileAudio audio(job->ended);
    const int code = audio.open(path);
    if (code >= 0)
        return transcribe(job, audio);
    if (!job->ended)
        multimedia::warning("run", "cannot hear " + path, code);
    return "not a sound file";
}

std::string PocketSphinxService::transcribe(const JobPtr& job, SpeechAudio& audio)
{
    SpeechSamples samples;
    SpeechSamples part;
    int code = 0;
    bool more = true;
    const auto fill = [&](std::size_t wanted) {
        while (more && samples.size() < wanted && !job->ended) {
            code = audio.read(part);
            more = code >= 0 && !part.empty();
            samples.insert(samples.end(), part.begin(), part.end());
        }
    };
    fill(kBeginning);
    Transcription transcription(
        *decoder, [this, &job](const SpeechResult& result) { report(job, result, {}); }, samples);
    while (!samples.empty()) {
        for (std::size_t fed = 0; fed < samples.size(); fed += kPiece) {
            if (job->ended)
                return "cancelled";
            if (!transcription.feed(samples.data() + fed, std::min(kPiece, samples.size() - fed)))
                return "the recogniser failed";
        }
        samples.clear();
        fill(kPiece);
    }
    if (code < 0 && !job->ended) // what was understood so far is kept
        multimedia::warning("transcribe", "the sound ends early", code);
    transcription.finish();
    return {};
}

void PocketSphinxService::report(const JobPtr& job, const SpeechResult& result, const std::string& error)
{
    const std::lock_guard lock(mutex);
    enqueueReport(job, result, error);
}

void PocketSphinxService::enqueueReport(const JobPtr& job, const SpeechResult& result,
                                        const std::string& error)
{
    if (job->ended)
        return;
    job->ended = result.is_final || !error.empty();
    reports.push_back({job, result, error});
    report_arrived.notify_one();
}

void PocketSphinxService::deliverReports()
{
    std::unique_lock lock(mutex);
    while (true) {
        report_arrived.wait(lock, [this] { return decoding_ended || !reports.empty(); });
        if (reports.empty())
            return;
        {
            const Report report = std::move(reports.front());
            reports.pop_front();
            lock.unlock();
            report.job->handler(report.result, report.error);
        }
        lock.lock();
    }
}

} // namespace speechRecognize
