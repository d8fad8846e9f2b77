// Making a GIF half its size, beside the `ffmpeg` tool doing the same scale and encode.
//
// 10 seconds of 640x360 at 12 pictures a second, with a palette of their own. Both sides take turns in one
// run; each ratio is of the medians. The tool is a process that has to start; what that takes is told, and in
// neither ratio hidden.

#include "bench/median.h"
#include "multimedia/gifhandler/gifhandler.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <functional>
#include <vector>

namespace {

constexpr int kRounds = 15;

bool runTool(const QStringList& arguments)
{
    return QProcess::execute(QStringLiteral("ffmpeg"),
                             QStringList{QStringLiteral("-v"), QStringLiteral("error"),
                                         QStringLiteral("-nostdin"), QStringLiteral("-y")} +
                                 arguments) == 0;
}

double seconds(const std::function<bool()>& work, benchmark::State& state)
{
    QElapsedTimer timer;
    timer.start();
    if (!work())
        state.SkipWithError("a side failed");
    return double(timer.nsecsElapsed()) / 1e9;
}

void compressHalf(benchmark::State& state)
{
    const QTemporaryDir folder;
    const QString source = folder.filePath(QStringLiteral("source.gif"));
    const QString ours = folder.filePath(QStringLiteral("ours.gif"));
    const QString theirs = folder.filePath(QStringLiteral("theirs.gif"));
    if (!runTool({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                  QStringLiteral("testsrc2=s=640x360:r=12:d=10"), QStringLiteral("-filter_complex"),
                  QStringLiteral("split[a][b];[a]palettegen[p];[b][p]paletteuse"), source})) {
        state.SkipWithError("no source");
        return;
    }
    const QStringList same_work{QStringLiteral("-i"),
                                source,
                                QStringLiteral("-vf"),
                                QStringLiteral("scale=320:180:flags=fast_bilinear"),
                                QStringLiteral("-pix_fmt"),
                                QStringLiteral("rgb8"),
                                theirs};
    const QStringList no_work{QStringLiteral("-f"), QStringLiteral("lavfi"),
                              QStringLiteral("-i"), QStringLiteral("nullsrc=s=16x16:d=0.1"),
                              QStringLiteral("-f"), QStringLiteral("null"),
                              QStringLiteral("-")};
    GifHandler handler;
    std::vector<double> library;
    std::vector<double> tool;
    std::vector<double> start;
    for ([[maybe_unused]] auto _ : state) {
        library.push_back(
            seconds([&] { return handler.compressGifSync({}, source, ours, kGifCompressHalf, {}); }, state));
        tool.push_back(seconds([&] { return runTool(same_work); }, state));
        start.push_back(seconds([&] { return runTool(no_work); }, state));
        state.SetIterationTime(library.back());
    }
    state.counters["library_ms"] = 1000 * median(library);
    state.counters["tool_ms"] = 1000 * median(tool);
    state.counters["tool_start_ms"] = 1000 * median(start);
    state.counters["ratio"] = median(library) / median(tool);
    state.counters["ratio_without_start"] = median(library) / (median(tool) - median(start));
    state.counters["bytes"] = double(QFileInfo(ours).size());
    state.counters["tool_bytes"] = double(QFileInfo(theirs).size());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RegisterBenchmark("compressGifSync/half/640x360/10s", compressHalf)
        ->Iterations(kRounds)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
