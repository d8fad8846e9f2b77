// The thumbnail of a 24-megapixel JPEG beside `vipsthumbnail` (libvips-tools) making one of the same size.
//
// Both sides take turns in one run; each ratio is of the medians. The tool is a process that has to start:
// what that takes is told, and in neither ratio hidden.

#include "bench/median.h"
#include "quillon/util.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtGui/QImageReader>

#include <benchmark/benchmark.h>

#include <functional>
#include <vector>

namespace {

constexpr int kRounds = 15;
constexpr int kSide = 640;

bool run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start(program, arguments);
    return process.waitForFinished() && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

double milliseconds(const std::function<bool()>& work, benchmark::State& state)
{
    QElapsedTimer timer;
    timer.start();
    if (!work())
        state.SkipWithError("a side failed; is vipsthumbnail installed?");
    return double(timer.nsecsElapsed()) / 1e6;
}

void thumbnail(benchmark::State& state)
{
    const QTemporaryDir folder;
    const QString source = folder.filePath(QStringLiteral("source.jpg"));
    const QString ours = folder.filePath(QStringLiteral("ours.jpg"));
    const QString theirs = folder.filePath(QStringLiteral("theirs.jpg"));
    // As from a camera: a photo with some grain.
    if (!run(QStringLiteral("ffmpeg"),
             {"-v", "error", "-nostdin", "-i", BENCH_PHOTO, "-vf",
              "scale=6000:4000:flags=lanczos,noise=alls=20:allf=t", "-q:v", "3", "-frames:v", "1", source})) {
        state.SkipWithError("no source");
        return;
    }
    const QString tool = QStringLiteral("vipsthumbnail");
    std::vector<double> library_ms;
    std::vector<double> tool_ms;
    std::vector<double> start_ms;
    for ([[maybe_unused]] auto _ : state) {
        library_ms.push_back(milliseconds(
            [&] {
                return Util::instance()->scaleThumbImage(source, ours, {kSide, kSide}, kSide, false);
            },
            state));
        tool_ms.push_back(milliseconds(
            [&] {
                return run(tool, {source, "--size", QString::number(kSide), "-o", theirs});
            },
            state));
        start_ms.push_back(milliseconds([&] { return run(tool, {"--vips-version"}); }, state));
        state.SetIterationTime(library_ms.back() / 1000);
    }
    if (QImageReader(ours).size().width() != kSide || QImageReader(theirs).size().width() != kSide)
        state.SkipWithError("a thumbnail has another size");
    state.counters["library_ms"] = median(library_ms);
    state.counters["tool_ms"] = median(tool_ms);
    state.counters["tool_start_ms"] = median(start_ms);
    state.counters["ratio"] = median(library_ms) / median(tool_ms);
    state.counters["ratio_without_start"] = median(library_ms) / (median(tool_ms) - median(start_ms));
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RegisterBenchmark("scaleThumbImage/24MP/640", thumbnail)
        ->Iterations(kRounds)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RunSpecifiedBenchmarks();
}
