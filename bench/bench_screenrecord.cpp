// What recording the screen costs, beside the `ffmpeg` tool doing the same capture with the same encoder
// settings.
//
// Runs inside tests/rig/with-desktop. Both sides record in turn, several times; the ratio is of the medians.
// The picture moves in a process of its own, which counts for neither side.

#include "multimedia/screenrecord/screenrecord.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtCore/QThread>
#include <QtGui/QGuiApplication>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <sys/resource.h>
#include <vector>

using multimedia::ScreenRecord;

namespace {

constexpr int kSeconds = 8;
constexpr int kFrameRate = 25;
constexpr int kRounds = 3;

double cpuSeconds(int who)
{
    rusage usage = {};
    getrusage(who, &usage);
    const auto seconds = [](const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void waitFor(const std::function<bool()>& condition)
{
    while (!condition()) {
        QCoreApplication::processEvents();
        QThread::msleep(50); // more often, and waiting would be seen beside the recording
    }
}

int frameCount(const QString& file)
{
    QProcess probe;
    probe.start(QStringLiteral("ffprobe"),
                {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-select_streams"),
                 QStringLiteral("v"), QStringLiteral("-count_packets"), QStringLiteral("-show_entries"),
                 QStringLiteral("stream=nb_read_packets"), QStringLiteral("-of"), QStringLiteral("csv=p=0"),
                 file});
    probe.waitForFinished(-1);
    return probe.readAllStandardOutput().trimmed().toInt();
}

struct Side
{
    std::vector<double> cpu_per_second;
    double median() const
    {
        std::vector<double> sorted = cpu_per_second;
        std::sort(sorted.begin(), sorted.end());
        return sorted.empty() ? 0 : sorted[sorted.size() / 2];
    }
};

Side library_side;
Side tool_side;

/// Counters of one recording. A frame that did not come within the time counts as dropped.
void count(benchmark::State& state, Side& side, double cpu, const QString& file)
{
    const int frames = frameCount(file);
    side.cpu_per_second.push_back(cpu / kSeconds);
    state.counters["cpu_s_per_s"] = cpu / kSeconds;
    state.counters["frames"] = frames;
    state.counters["dropped"] = std::max(0, kSeconds * kFrameRate - frames);
    QFile::remove(file);
}

void library(benchmark::State& state)
{
    for ([[maybe_unused]] auto _ : state) {
        ScreenRecord recorder;
        recorder.setScreen(QGuiApplication::primaryScreen());
        recorder.setRect({0, 0, 1920, 1080});
        const double before = cpuSeconds(RUSAGE_SELF);
        recorder.start();
        waitFor([&] { return recorder.getState() == ScreenRecord::Running; });
        QElapsedTimer clock;
        clock.start();
        waitFor([&] { return clock.elapsed() >= kSeconds * 1000; });
        recorder.stop();
        waitFor([&] { return recorder.getState() == ScreenRecord::Waiting; });
        count(state, library_side, cpuSeconds(RUSAGE_SELF) - before, recorder.getFile());
    }
}

void tool(benchmark::State& state)
{
    const QTemporaryDir directory;
    for ([[maybe_unused]] auto _ : state) {
        const QString file = directory.filePath(QStringLiteral("tool.mp4"));
        const double before = cpuSeconds(RUSAGE_CHILDREN);
        QProcess ffmpeg;
        ffmpeg.start(
            QStringLiteral("ffmpeg"),
            QStringLiteral("-v error -nostdin -f x11grab -framerate 25 -draw_mouse 1 -video_size 1920x1080 "
                           "-i %1 -f pulse -sample_rate 44100 -channels 2 -i default -t %2 -c:v libx264 "
                           "-preset ultrafast -pix_fmt yuv420p -c:a aac -ar 44100 -ac 2")
                    .arg(qEnvironmentVariable("DISPLAY"))
                    .arg(kSeconds)
                    .split(QLatin1Char(' ')) +
                QStringList{file});
        ffmpeg.waitForFinished(-1);
        if (ffmpeg.exitCode() != 0)
            state.SkipWithError("ffmpeg failed");
        const double cpu = cpuSeconds(RUSAGE_CHILDREN) - before;
        count(state, tool_side, cpu, file);
    }
}

} // namespace

int main(int argc, char* argv[])
{
    QGuiApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    QProcess picture;
    picture.start(QStringLiteral(MOVING_PICTURE), QStringList());
    if (!picture.waitForStarted() || !picture.waitForReadyRead(10'000)) {
        std::fprintf(stderr, "the moving picture does not start\n");
        return 1;
    }
    for (int round = 0; round < kRounds; ++round) {
        benchmark::RegisterBenchmark("recording/library", library)->Iterations(1)->UseRealTime();
        benchmark::RegisterBenchmark("recording/ffmpeg_tool", tool)->Iterations(1)->UseRealTime();
    }
    benchmark::RunSpecifiedBenchmarks();
    picture.terminate();
    picture.waitForFinished();
    if (tool_side.median() > 0)
        std::printf("CPU seconds per recorded second, medians: library %.3f, tool %.3f, ratio %.2f\n",
                    library_side.median(), tool_side.median(), library_side.median() / tool_side.median());
    return 0;
}
