#include "multimedia/speechrecognizer_linux/pocketsphinxdecoder.h"

#include "multimedia/base/warning.h"

#include <pocketsphinx.h>
#include <sphinxbase/cmn.h>
#include <sphinxbase/err.h>
#include <sphinxbase/feat.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

namespace speechRecognize {

namespace {

constexpr auto kModelFolder = POCKETSPHINX_MODEL_DIR "/en-us";
constexpr auto kAcousticModel = "/en-us";
constexpr auto kLanguageModel = "/en-us.lm.bin";
constexpr auto kDictionary = "/cmudict-en-us.dict";
/// Frames of speech, 10 ms each, that tell something of a voice.
constexpr int kFewestFrames = 20;

/// The recogniser has one log in a process and tells much there, errors that are none among it. What makes it
/// end the process is the only thing that nobody else could tell.
void logFatal(void* /*user*/, err_lvl_t level, const char* format, ...)
{
    if (level < ERR_FATAL)
        return;
    std::array<char, 512> text = {};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    std::string line = text.data();
    while (!line.empty() && line.back() == '\n')
        line.pop_back();
    multimedia::warning("pocketsphinx", line);
}

/// Mean cepstrum of the speech in `samples`, or `fallback` when there is too little.
std::vector<float> meanCepstrum(fe_t* front_end, const SpeechSamples& samples,
                                const std::vector<float>& fallback)
{
    constexpr std::size_t kRows = 100;
    const std::size_t size = fallback.size();
    std::vector<float> values(kRows * size);
    std::array<float*, kRows> rows = {};
    for (std::size_t i = 0; i < kRows; ++i)
        rows[i] = &values[i * size];

    std::vector<double> sum(size);
    int frames = 0;
    const std::int16_t* next = samples.data();
    std::size_t left = samples.size();
    const auto add = [&](int count) {
        frames += count;
        for (std::size_t i = 0; i < std::size_t(count) * size; ++i)
            sum[i % size] += double(values[i]);
    };
    fe_start_stream(front_end);
    fe_start_utt(front_end);
    while (left > 0) {
        const std::size_t before = left;
        int count = kRows;
        if (fe_process_frames(front_end, &next, &left, rows.data(), &count, nullptr) < 0)
            break;
        add(count);
        if (count == 0 && left == before)
            break;
    }
    int count = 0;
    fe_end_utt(front_end, rows[0], &count);
    add(count);
    if (frames < kFewestFrames)
        return fallback;

    std::vector<float> mean(size);
    for (std::size_t i = 0; i < size; ++i)
        mean[i] = float(sum[i] / frames);
    return mean;
}

} // namespace

namespace detail {
void SphinxDeleter::operator()(cmd_ln_t* config) const
{
    cmd_ln_free_r(config);
}
void SphinxDeleter::operator()(fe_t* front_end) const
{
    fe_free(front_end);
}
void SphinxDeleter::operator()(ps_decoder_t* decoder) const
{
    ps_free(decoder);
}
} // namespace detail

bool PocketSphinxDecoder::hasModel(const std::string& model_folder)
{
    std::error_code error;
    for (const auto* part : {"/en-us/mdef", kLanguageModel, kDictionary}) {
        if (!std::filesystem::exists(model_folder + part, error))
            return false;
    }
    return true;
}

std::unique_ptr<PocketSphinxDecoder> PocketSphinxDecoder::load(const std::string& model_folder)
{
    static std::once_flag logs;
    std::call_once(logs, [] {
        err_set_logfp(nullptr); // where its configuration would be listed
        err_set_callback(logFatal, nullptr);
    });
    std::unique_ptr<PocketSphinxDecoder> result(new PocketSphinxDecoder);
    if (result->open(model_folder))
        return result;
    multimedia::warning("load", "cannot load the speech model in " + model_folder);
    return nullptr;
}

bool PocketSphinxDecoder::open(const std::string& model_folder)
{
    config.reset(cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", (model_folder + kAcousticModel).c_str(), "-lm",
                             (model_folder + kLanguageModel).c_str(), "-dict",
                             (model_folder + kDictionary).c_str(), nullptr));
    if (!config)
        return false;
    decoder.reset(ps_init(config.get()));
    front_end.reset(decoder ? fe_init_auto_r(config.get()) : nullptr);
    if (!front_end)
        return false;
    const cmn_t* mean = ps_get_feat(decoder.get())->cmn_struct;
    initial_mean.assign(mean->cmn_mean, mean->cmn_mean + mean->veclen);
    return fe_get_output_size(front_end.get()) == int(initial_mean.size());
}

void PocketSphinxDecoder::startStream(const SpeechSamples& beginning)
{
    ps_start_stream(decoder.get());
    std::vector<float> mean = meanCepstrum(front_end.get(), beginning, initial_mean);
    cmn_live_set(ps_get_feat(decoder.get())->cmn_struct, mean.data());
}

bool PocketSphinxDecoder::startUtterance()
{
    was_speech = false;
    return ps_start_utt(decoder.get()) == 0;
}

SpeechDecoder::Heard PocketSphinxDecoder::process(const std::int16_t* samples, std::size_t count)
{
    if (ps_process_raw(decoder.get(), samples, count, FALSE, FALSE) < 0)
        return Heard::Failure;
    const bool is_speech = ps_get_in_speech(decoder.get()) != 0;
    const bool has_ended = std::exchange(was_speech, is_speech) && !is_speech;
    return is_speech ? Heard::Speech : has_ended ? Heard::Ending : Heard::Pause;
}

void PocketSphinxDecoder::endUtterance()
{
    ps_end_utt(decoder.get());
}

std::string PocketSphinxDecoder::words()
{
    const char* words = ps_get_hyp(decoder.get(), nullptr);
    return words ? words : "";
}

PocketSphinxEngine::PocketSphinxEngine()
    : PocketSphinxEngine(kModelFolder)
{}

std::vector<SpeechModel> PocketSphinxEngine::models()
{
    if (!PocketSphinxDecoder::hasModel(model_folder))
        return {};
    return {{"pocketsphinx", "en_US", model_folder}};
}

std::unique_ptr<SpeechDecoder> PocketSphinxEngine::load(const SpeechModel& model)
{
    return PocketSphinxDecoder::load(model.path);
}

std::string PocketSphinxEngine::whatToInstall() const
{
    return "for English install the package pocketsphinx-en-us, whose model is looked for in " + model_folder;
}

} // namespace speechRecognize
