// How well speech is understood, and how fast.
//
// Each voice speaks the sentences of speech-sentences.txt; "people" are the recordings that come with the
// recogniser, by people who read a novel, name playing cards, or give commands. The word error rate is the
// number of words to change, leave out or put in, over the number of words spoken. "Nobody" is sound without
// speech, of which words a minute are counted. Vosk takes part where it and a model of English are installed.
// Speeds count from a request to its end, with the model loaded: `times_real_time` by the clock,
// `times_real_time_cpu` by the time that the processors spent on it.

#include "multimedia/base/mediasource.h"
#include "multimedia/speechrecognizer_linux/localspeechservice.h"
#include "multimedia/speechrecognizer_linux/pocketsphinxdecoder.h"
#include "multimedia/speechrecognizer_linux/voskengine.h"

extern "C" {
#include <libavutil/log.h>
}

#include <benchmark/benchmark.h>

#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <future>
#include <thread>
#include <vector>

using speechRecognize::LocalSpeechService;
using speechRecognize::SpeechResult;
using speechRecognize::SpeechService;

namespace {

using Clock = std::chrono::steady_clock;

template<typename Engine>
std::unique_ptr<SpeechService> makeService()
{
    LocalSpeechService::Engines engines;
    engines.push_back(std::make_unique<Engine>());
    return std::make_unique<LocalSpeechService>(std::move(engines));
}

double secondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// Adds up what recognitions take.
class Stopwatch
{
public:
    void start()
    {
        begin = Clock::now();
        cpu_begin = std::clock();
    }
    void stop(double audio_of_it_s)
    {
        taken_s += secondsSince(begin);
        cpu_s += double(std::clock() - cpu_begin) / CLOCKS_PER_SEC;
        audio_s += audio_of_it_s;
    }
    double minutes() const { return audio_s / 60; }
    void tell(benchmark::State& state) const
    {
        state.counters["times_real_time"] = audio_s / taken_s;
        state.counters["times_real_time_cpu"] = audio_s / cpu_s;
    }

private:
    Clock::time_point begin;
    std::clock_t cpu_begin = 0;
    double taken_s = 0;
    double cpu_s = 0;
    double audio_s = 0;
};

/// Length of a sound file in seconds.
double duration(const QString& path)
{
    multimedia::MediaSource source;
    if (source.open(path.toStdString()) < 0 || source.findStreams() < 0)
        return 0;
    return double(source.duration()) / 1000;
}

/// The text of a file, its utterances in a row.
QString recognize(SpeechService& service, const QString& path)
{
    QString finished;
    QString text;
    std::int64_t segments = 0;
    std::promise<void> end;
    const auto hear = [&](const SpeechResult& result, const std::string& error) {
        if (error.empty()) {
            if (result.segment_count < segments)
                finished = text;
            segments = result.segment_count;
            text = finished + QString::fromStdString(result.text);
        }
        if (result.is_final || !error.empty())
            end.set_value();
    };
    service.recognizeFile(path.toStdString(), "en_US", hear);
    end.get_future().wait();
    return text;
}

QStringList wordsOf(const QString& text)
{
    QString plain =
        text.toLower().replace(QRegularExpression(QStringLiteral("[^a-z']+")), QStringLiteral(" "));
    plain.replace(QRegularExpression(QStringLiteral("\\bmister\\b")), QStringLiteral("mr"));
    return plain.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

/// Least number of words to change, leave out or put in.
int editDistance(const QStringList& spoken, const QStringList& understood)
{
    std::vector<int> row(std::size_t(understood.size()) + 1);
    for (std::size_t i = 0; i < row.size(); ++i)
        row[i] = int(i);
    for (const QString& word : spoken) {
        int diagonal = row[0]++;
        for (std::size_t i = 1; i < row.size(); ++i) {
            const int replaced = diagonal + (word == understood[int(i) - 1] ? 0 : 1);
            diagonal = row[i];
            row[i] = std::min({row[i] + 1, row[i - 1] + 1, replaced});
        }
    }
    return row.back();
}

void voice(benchmark::State& state, SpeechService& service, const QString& list)
{
    QFile file(list);
    if (!file.open(QIODevice::ReadOnly)) {
        state.SkipWithError("no sentences");
        return;
    }
    const QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    int words = 0;
    int errors = 0;
    int understood = 0;
    Stopwatch stopwatch;
    for ([[maybe_unused]] auto _ : state) {
        for (const QString& line : lines) {
            const QString path = line.section(QLatin1Char('|'), 0, 0);
            const QStringList spoken = wordsOf(line.section(QLatin1Char('|'), 1));
            stopwatch.start();
            const QString text = recognize(service, path);
            stopwatch.stop(duration(path));
            const QStringList heard = wordsOf(text);
            words += spoken.size();
            understood += heard.size();
            errors += editDistance(spoken, heard);
        }
    }
    state.counters["sentences"] = lines.size();
    state.counters["words"] = words;
    if (words > 0)
        state.counters["word_error_percent"] = 100.0 * errors / words;
    else
        state.counters["words_a_minute"] = understood / stopwatch.minutes();
    stopwatch.tell(state);
}

/// Memory of the process, in MiB.
double memory()
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const auto match =
        QRegularExpression(QStringLiteral("VmRSS:\\s*(\\d+)")).match(QString::fromUtf8(file.readAll()));
    return match.captured(1).toDouble() / 1024;
}

/// An hour of talk as one file.
void hour(benchmark::State& state, SpeechService& service, const QString& path)
{
    Stopwatch stopwatch;
    double first_mb = 0;
    double peak_mb = 0;
    std::int64_t words = 0;
    for ([[maybe_unused]] auto _ : state) {
        std::promise<void> end;
        std::int64_t segments = 0;
        int reports = 0;
        stopwatch.start();
        service.recognizeFile(path.toStdString(), "en_US",
                              [&](const SpeechResult& result, const std::string&) {
                                  if (result.segment_count < segments)
                                      words += segments;
                                  segments = result.segment_count;
                                  constexpr int kReportsOfAMinute = 200;
                                  const double now_mb = memory();
                                  if (++reports == kReportsOfAMinute)
                                      first_mb = now_mb;
                                  peak_mb = std::max(peak_mb, now_mb);
                                  if (result.is_final)
                                      end.set_value();
                              });
        end.get_future().wait();
        stopwatch.stop(duration(path));
    }
    stopwatch.tell(state);
    state.counters["words"] = double(words);
    state.counters["MiB_after_a_minute"] = first_mb;
    state.counters["MiB_at_most"] = peak_mb;
}

/// What a process has before a model is loaded, with it, and when it has been let go of.
void model(benchmark::State& state, SpeechService& service, const QString& path)
{
    for ([[maybe_unused]] auto _ : state) {
        state.counters["MiB_before"] = memory();
        recognize(service, path);
        state.counters["MiB_with_model"] = memory();
        constexpr auto kLetGo = std::chrono::seconds(63);
        std::this_thread::sleep_for(kLetGo);
        state.counters["MiB_a_minute_later"] = memory();
    }
}

/// From a cancel amidst an hour of talk to the report of the end, the longest of some.
void cancel(benchmark::State& state, SpeechService& service, const QString& path)
{
    double longest_s = 0;
    for ([[maybe_unused]] auto _ : state) {
        std::promise<void> heard;
        std::promise<void> end;
        bool first = true;
        const auto task = service.recognizeFile(path.toStdString(), "en_US",
                                                [&](const SpeechResult&, const std::string& error) {
                                                    if (std::exchange(first, false))
                                                        heard.set_value();
                                                    if (!error.empty())
                                                        end.set_value();
                                                });
        heard.get_future().wait();
        const auto begin = Clock::now();
        service.cancel(task);
        end.get_future().wait();
        longest_s = std::max(longest_s, secondsSince(begin));
    }
    state.counters["longest_ms"] = longest_s * 1000;
}

} // namespace

int main(int argc, char* argv[])
{
    av_log_set_level(AV_LOG_ERROR);
    benchmark::Initialize(&argc, argv);
    const QTemporaryDir folder;
    std::puts("the sentences are being spoken");
    if (QProcess::execute(QStringLiteral(SPEECH_VOICES), {folder.path()}) != 0)
        return 1;
    const auto vosk = makeService<speechRecognize::VoskEngine>();
    const auto pocketsphinx = makeService<speechRecognize::PocketSphinxEngine>();
    const auto add = [&](const std::string& engine, SpeechService& service) {
        const auto once = [&](const std::string& name, auto function, const QString& path) {
            const auto run = [=, &service](benchmark::State& state) { function(state, service, path); };
            return benchmark::RegisterBenchmark((engine + '/' + name).c_str(), run)
                ->Iterations(1)
                ->Unit(benchmark::kSecond)
                ->UseRealTime();
        };
        const QString talk = folder.filePath(QStringLiteral("hour.mp3"));
        once("model", model, folder.filePath(QStringLiteral("goforward.wav")));
        for (const char* name :
             {"festival-cmu_us_slt_arctic_hts", "festival-kal_diphone", "flite-rms", "flite-slt",
              "flite-kal16", "telephone-rms", "people-reading", "people-cards", "people-commands",
              "people-prompts", "nobody-music", "nobody-applause", "nobody-noise", "nobody-silence"})
            once(name, voice, folder.filePath(QLatin1String(name) + QLatin1String(".txt")));
        once("cancel", cancel, talk)->Iterations(10)->Unit(benchmark::kMillisecond);
        once("hour", hour, talk);
    };
    if (vosk->isAvailable("en_US"))
        add("vosk", *vosk);
    add("pocketsphinx", *pocketsphinx);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
