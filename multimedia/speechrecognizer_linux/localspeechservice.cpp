#include "multimedia/speechrecognizer_linux/localspeechservice.h"

#include "multimedia/base/warning.h"
#include "multimedia/speechrecognizer_linux/spokenaudio.h"
#include "multimedia/speechrecognizer_linux/transcription.h"

#include <algorithm>
#include <chrono>
#include <system_error>

#include <malloc.h>

namespace speechRecognize {

namespace {

constexpr auto kKeepModel = std::chrono::minutes(1);
/// What the decoder adjusts itself to.
constexpr std::size_t kBeginning = std::size_t(kSpeechRate) * 30;
constexpr std::size_t kPiece = kSpeechRate / 10;

} // namespace

LocalSpeechService::LocalSpeechService(Engines engines)
    : engines(std::move(engines))
{}

LocalSpeechService::~LocalSpeechService()
{
    end();
}

void LocalSpeechService::end()
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
    decoder.reset();
    const std::lock_guard lock(mutex);
    stopping = false;
    decoding_ended = false;
}

SpeechService::Authorization LocalSpeechService::authorizationStatus()
{
    if (!models().empty())
        return Authorization::Authorized;
    multimedia::warning("authorizationStatus", "no speech model: " + whatToInstall());
    return Authorization::Restricted;
}

void LocalSpeechService::requestAuthorization(AuthorizationHandler answered)
{
    answered(authorizationStatus());
}

bool LocalSpeechService::isAvailable(const std::string& locale)
{
    return !choices(speechLanguage(locale)).empty();
}

std::vector<SpeechModel> LocalSpeechService::models()
{
    std::vector<SpeechModel> all;
    for (const auto& engine : engines) {
        const std::vector<SpeechModel> some = engine->models();
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

SpeechModel LocalSpeechService::answering()
{
    const std::lock_guard lock(mutex);
    return loaded;
}

std::vector<LocalSpeechService::Choice> LocalSpeechService::choices(const SpeechLanguage& language)
{
    std::vector<Choice> found;
    for (const auto& engine : engines) {
        const auto first = std::ptrdiff_t(found.size());
        for (const SpeechModel& model : engine->models()) {
            if (speechLanguage(model.language).language == language.language)
                found.push_back({engine.get(), model});
        }
        std::stable_partition(found.begin() + first, found.end(), [&](const Choice& choice) {
            return speechLanguage(choice.model.language) == language;
        });
    }
    return found;
}

std::string LocalSpeechService::whatToInstall() const
{
    std::string text;
    for (const auto& engine : engines)
        text += (text.empty() ? "" : "; or ") + engine->whatToInstall();
    return text;
}

SpeechService::Task LocalSpeechService::recognizeFile(const std::string& path, const std::string& locale,
                                                      ResultHandler handler)
{
    return start(path, locale, std::move(handler));
}

SpeechService::Task LocalSpeechService::recognizeBuffer(const PcmAudio& audio, const std::string& locale,
                                                        ResultHandler handler)
{
    return start(audio, locale, std::move(handler));
}

SpeechService::Task LocalSpeechService::start(Source source, const std::string& locale, ResultHandler handler)
{
    const std::lock_guard lock(mutex);
    if (stopping || !startThreads())
        return 0;
    const auto job = std::make_shared<Job>();
    job->number = ++last_number;
    job->source = std::move(source);
    job->language = locale.empty() ? systemSpeechLanguage() : speechLanguage(locale);
    job->handler = std::move(handler);
    waiting.push_back(job);
    job_arrived.notify_one();
    return job->number;
}

bool LocalSpeechService::startThreads()
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

void LocalSpeechService::cancel(Task task)
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

void LocalSpeechService::decodeJobs()
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

LocalSpeechService::JobPtr LocalSpeechService::nextJob()
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

std::string LocalSpeechService::run(const JobPtr& job)
{
    if (!load(job->language))
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

/// Makes `decoder` the best one for a language; false, and a line in the log, when there is none.
bool LocalSpeechService::load(const SpeechLanguage& language)
{
    for (const SpeechLanguage& wanted : {language, systemSpeechLanguage()}) {
        for (const Choice& choice : choices(wanted)) {
            if (use(choice))
                return true;
        }
    }
    multimedia::warning("load", "no speech model for " + language.name() + " nor for the system's " +
                                    systemSpeechLanguage().name() + ": " + whatToInstall());
    const std::lock_guard lock(mutex);
    loaded = {};
    return false;
}

bool LocalSpeechService::use(const Choice& choice)
{
    if (!decoder || loaded.path != choice.model.path) {
        decoder.reset(); // two would want the memory of both
        decoder = choice.engine->load(choice.model);
    }
    const std::lock_guard lock(mutex);
    if (decoder)
        loaded = choice.model;
    return bool(decoder);
}

std::string LocalSpeechService::transcribe(const JobPtr& job, SpeechAudio& audio)
{
    SpokenAudio spoken(audio, job->ended);
    SpeechSamples samples;
    SpeechSamples part;
    int code = 0;
    bool more = true;
    const auto fill = [&](std::size_t wanted) {
        while (more && samples.size() < wanted && !job->ended) {
            code = spoken.read(part);
            more = code >= 0 && !part.empty();
            samples.insert(samples.end(), part.begin(), part.end());
        }
    };
    fill(kBeginning);
    Transcription transcription(
        *decoder, [this, &job](const SpeechResult& result) { report(job, result, {}); },
        speechLanguage(loaded.language), samples);
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

void LocalSpeechService::report(const JobPtr& job, const SpeechResult& result, const std::string& error)
{
    const std::lock_guard lock(mutex);
    enqueueReport(job, result, error);
}

void LocalSpeechService::enqueueReport(const JobPtr& job, const SpeechResult& result,
                                       const std::string& error)
{
    if (job->ended)
        return;
    job->ended = result.is_final || !error.empty();
    reports.push_back({job, result, error});
    report_arrived.notify_one();
}

void LocalSpeechService::deliverReports()
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
