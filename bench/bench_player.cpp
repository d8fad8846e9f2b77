// What playing costs, in processor time and in wake-ups, beside `mpv` and `ffplay` playing the same file and
// beside the `ffmpeg` tool decoding it through the same filters; how soon a local file sounds, and what a
// look into a file takes.
//
// Runs inside tests/rig/with-desktop. All sides take turns, several times; the ratios are of the medians. A
// player plays two files, and what it takes to start is no part of the difference.

#include "bench/median.h"
#include "multimedia/audioplayer/audioplayer.h"

#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QSemaphore>
#include <QtCore/QTemporaryDir>
#include <QtCore/QThread>
#include <QtGui/QGuiApplication>

#include <benchmark/benchmark.h>
#include <pulse/stream.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <dlfcn.h>
#include <map>
#include <sys/resource.h>
#include <vector>

namespace {
using Clock = std::chrono::steady_clock;

constexpr int kSourceSeconds = 20;
constexpr int kRounds = 3;
constexpr int kFiles = 200;

std::atomic<Clock::rep> first_write = 0; ///< 0 until the sound server was given something
QSemaphore closed;
QString source;
QString long_source;                                         ///< twice as long
std::map<double, std::vector<double>> library_cpu, tool_cpu; ///< by speed, seconds per played second

struct Cost
{
    std::vector<double> cpu;     ///< seconds per played second
    std::vector<double> wakeups; ///< per played second
};
std::map<std::string, Cost> players; ///< at speed 1
} // namespace

/// Stands before the sound server's own function, which Qt's output calls.
extern "C" Q_DECL_EXPORT int pa_stream_write(pa_stream* stream, const void* data, size_t size,
                                             pa_free_cb_t free, int64_t offset, pa_seek_mode_t seek)
{
    static const auto original =
        reinterpret_cast<decltype(&pa_stream_write)>(dlsym(RTLD_NEXT, "pa_stream_write"));
    Clock::rep none = 0;
    first_write.compare_exchange_strong(none, Clock::now().time_since_epoch().count());
    return original(stream, data, size, free, offset, seek);
}

namespace {
struct Usage
{
    double cpu_s;
    double wakeups; ///< what the system counts as leaving the processor of one's own accord

    Usage operator-(const Usage& other) const { return {cpu_s - other.cpu_s, wakeups - other.wakeups}; }
};

Usage usageOf(int who)
{
    rusage usage = {};
    getrusage(who, &usage);
    const auto seconds = [](const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) / 1e6; };
    return {seconds(usage.ru_utime) + seconds(usage.ru_stime), double(usage.ru_nvcsw)};
}

void ffmpeg(benchmark::State& state, const QStringList& arguments)
{
    if (QProcess::execute(QStringLiteral("ffmpeg"),
                          QStringList{"-v", "error", "-nostdin", "-y"} + arguments) != 0)
        state.SkipWithError("ffmpeg failed");
}

/// The host: takes the events as they come.
void announce(void*)
{
    const AudioEvents event = AudioPlayer::instance()->audioEvent();
    if (event.eventId == EventClosed)
        closed.release();
    if (event.eventId == EventError)
        std::fprintf(stderr, "%s\n", qPrintable(event.message));
}

Clock::time_point play(const QString& path)
{
    AudioPlayer* player = AudioPlayer::instance();
    player->breakPlay(path, 0);
    const Clock::time_point start = Clock::now();
    QMetaObject::invokeMethod(player, "play", Qt::QueuedConnection, Q_ARG(QString, path));
    return start;
}

void note(benchmark::State& state, const std::string& player, const Usage& of_source)
{
    Cost& cost = players[player];
    cost.cpu.push_back(of_source.cpu_s / kSourceSeconds);
    cost.wakeups.push_back(of_source.wakeups / kSourceSeconds);
    state.counters["cpu_s_per_played_s"] = cost.cpu.back();
    state.counters["wakeups_per_s"] = cost.wakeups.back();
}

void playing(benchmark::State& state, double speed)
{
    AudioPlayer::instance()->setSpeed(speed);
    for ([[maybe_unused]] auto _ : state) {
        const Usage before = usageOf(RUSAGE_SELF);
        play(source);
        closed.acquire();
        const Usage used = usageOf(RUSAGE_SELF) - before;
        library_cpu[speed].push_back(used.cpu_s * speed / kSourceSeconds);
        state.counters["cpu_s_per_played_s"] = library_cpu[speed].back();
        if (speed == 1.0)
            note(state, "library", used);
    }
    AudioPlayer::instance()->setSpeed(1.0);
}

void tool(benchmark::State& state, double speed)
{
    for ([[maybe_unused]] auto _ : state) {
        const Usage before = usageOf(RUSAGE_CHILDREN);
        const QString filters =
            QStringLiteral("aresample=44100,aformat=sample_fmts=s16:channel_layouts=stereo,atempo=%1")
                .arg(speed);
        ffmpeg(state, {"-i", source, "-af", filters, "-f", "s16le", "/dev/null"});
        tool_cpu[speed].push_back((usageOf(RUSAGE_CHILDREN) - before).cpu_s * speed / kSourceSeconds);
        state.counters["cpu_s_per_played_s"] = tool_cpu[speed].back();
    }
}

void otherPlayer(benchmark::State& state, const QString& program, const QStringList& options)
{
    const auto cost = [&](const QString& path) {
        const Usage before = usageOf(RUSAGE_CHILDREN);
        if (QProcess::execute(program, options + QStringList{path}) != 0)
            state.SkipWithError("the player failed; is it installed?");
        return usageOf(RUSAGE_CHILDREN) - before;
    };
    for ([[maybe_unused]] auto _ : state) {
        const Usage once = cost(source);
        note(state, program.toStdString(), cost(long_source) - once);
    }
}

void firstSound(benchmark::State& state)
{
    for ([[maybe_unused]] auto _ : state) {
        first_write = 0;
        const Clock::time_point start = play(source);
        while (first_write == 0)
            QThread::usleep(100);
        const Clock::duration since_epoch(first_write.load());
        state.SetIterationTime(std::chrono::duration<double>(since_epoch - start.time_since_epoch()).count());
        AudioPlayer::instance()->breakPlay({}, 0);
        closed.acquire();
    }
}

void inspection(benchmark::State& state)
{
    const QTemporaryDir folder;
    QStringList files;
    for (int i = 0; i < kFiles; ++i) {
        files.append(folder.filePath(QStringLiteral("%1.mp3").arg(i)));
        QFile::copy(source, files.last());
    }
    for ([[maybe_unused]] auto _ : state) {
        for (const QString& file : files) {
            long long duration = 0;
            QString format = QStringLiteral("mp3");
            if (!AudioPlayer::audioFormat(file, duration, format))
                state.SkipWithError("a file was refused");
        }
    }
    state.counters["files_per_s"] =
        benchmark::Counter(double(kFiles) * double(state.iterations()), benchmark::Counter::kIsRate);
}
} // namespace

int main(int argc, char* argv[])
{
    const QGuiApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    const QTemporaryDir folder;
    source = folder.filePath(QStringLiteral("source.mp3"));
    const QString sound =
        QStringLiteral("aevalsrc=exprs=0.3*sin(880*PI*t)+0.1*random(0)|0.3*sin(660*PI*t)+0.1*random(1):"
                       "sample_rate=44100:channel_layout=stereo");
    if (QProcess::execute(QStringLiteral("ffmpeg"),
                          {"-v", "error", "-nostdin", "-f", "lavfi", "-i", sound, "-t",
                           QString::number(kSourceSeconds), "-b:a", "128k", source}) != 0)
        return 1;
    long_source = folder.filePath(QStringLiteral("long.mp3"));
    if (QProcess::execute(QStringLiteral("ffmpeg"), {"-v", "error", "-nostdin", "-stream_loop", "1", "-i",
                                                     source, "-c", "copy", long_source}) != 0)
        return 1;

    AudioPlayer::instance()->regCallBack(announce, &source);
    benchmark::RegisterBenchmark("first_sound", firstSound)
        ->Iterations(50)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("audioFormat/200_files", inspection)->Unit(benchmark::kMillisecond);
    for (int round = 0; round < kRounds; ++round) {
        for (const auto& [program, options] :
             {std::pair(QStringLiteral("mpv"), QStringList{"--no-video", "--no-config", "--really-quiet"}),
              {QStringLiteral("ffplay"), {"-nodisp", "-autoexit", "-v", "error"}}})
            benchmark::RegisterBenchmark(("player/" + program).toLatin1().constData(),
                                         [program = program, options = options](benchmark::State& state) {
                                             otherPlayer(state, program, options);
                                         })
                ->Iterations(1)
                ->UseRealTime();
        for (const double speed : {1.0, 2.0}) {
            const std::string suffix = "/speed_" + std::to_string(int(speed));
            benchmark::RegisterBenchmark(("playing" + suffix).c_str(), playing, speed)
                ->Iterations(1)
                ->UseRealTime();
            benchmark::RegisterBenchmark(("ffmpeg_tool" + suffix).c_str(), tool, speed)
                ->Iterations(1)
                ->UseRealTime();
        }
    }
    benchmark::RunSpecifiedBenchmarks();
    for (const auto& [speed, cpu] : tool_cpu)
        std::printf("CPU seconds per played second at %.1f, medians: library %.4f, tool %.4f, ratio %.2f\n",
                    speed, median(library_cpu[speed]), median(cpu), median(library_cpu[speed]) / median(cpu));
    for (const auto& [player, cost] : players)
        std::printf("Playing by %s: CPU seconds per played second %.4f (library %.2f of that), wake-ups a "
                    "second %.0f\n",
                    player.c_str(), median(cost.cpu), median(players["library"].cpu) / median(cost.cpu),
                    median(cost.wakeups));
    AudioPlayer::instance()->release();
    return 0;
}
