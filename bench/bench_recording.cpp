// What a long, a large or a hindered recording comes to. Runs inside tests/rig/with-desktop:
//
//   bench_recording offsets SECONDS [CAPTURE]
//       each capture rate, or the one of that name, with the machine idle and with both cores taken: the
//       film's length, and how far its sound moves against its picture
//   bench_recording memory SECONDS
//       the most memory that a recording of the whole screen takes while both cores are taken (with-desktop
//       --size 3840x2160), and how long its end takes
//   bench_recording cost SECONDS
//       what a recording costs where half of the screen is still, in with-wayland, too; how long its start
//       takes, and the film's length
//   bench_recording finish FILE...
//       how long the end of a film of that length takes: FILE is turned, in a copy, from fragments into an
//       ordinary one

#include "multimedia/screenrecord/recordingfile.h"
#include "multimedia/screenrecord/screenrecord.h"
#include "tests/support/filmclock.h"
#include "tests/support/mediacheck.h"
#include "tests/support/slowmachine.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>
#include <QtCore/QThread>
#include <QtGui/QGuiApplication>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

using multimedia::ScreenRecord;
using namespace std::chrono_literals;

namespace {

constexpr double kMegabyte = 1 << 20;

void waitFor(const std::function<bool()>& condition)
{
    while (!condition()) {
        QCoreApplication::processEvents();
        QThread::msleep(5);
    }
}

/// Other work for every core of the machine.
class Load
{
public:
    explicit Load(bool on)
    {
        for (int i = 0; on && i < QThread::idealThreadCount(); ++i) {
            workers.push_back(std::make_unique<QProcess>());
            workers.back()->start(QStringLiteral("sh"),
                                  {QStringLiteral("-c"), QStringLiteral("while :; do :; done")});
            workers.back()->waitForStarted();
        }
    }
    ~Load()
    {
        for (const auto& worker : workers) {
            worker->kill();
            worker->waitForFinished();
        }
    }

private:
    std::vector<std::unique_ptr<QProcess>> workers;
};

struct Film
{
    QString file;
    double recorded_s = 0;
    double ended_s = 0;   ///< from `stop` to `fileChanged`
    double started_s = 0; ///< from `start` until it runs
    double cpu_s = 0;     ///< of all threads, while it ran
    double most_bytes = 0;
};

double residentBytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    return statm.readAll().split(' ')[1].toDouble() * double(sysconf(_SC_PAGESIZE));
}

double cpuSeconds()
{
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return double(used.tv_sec) + double(used.tv_nsec) / 1e9;
}

Film record(const QRect& rect, double seconds, bool is_mute = false)
{
    Film film;
    ScreenRecord recorder;
    recorder.setIsMute(is_mute);
    recorder.setScreen(QGuiApplication::primaryScreen());
    recorder.setRect(rect);
    QElapsedTimer clock;
    clock.start();
    recorder.start();
    waitFor([&] { return recorder.getState() == ScreenRecord::Running; });
    film.started_s = double(clock.nsecsElapsed()) / 1e9;
    clock.restart();
    const double cpu_before_s = cpuSeconds();
    waitFor([&] {
        film.most_bytes = std::max(film.most_bytes, residentBytes());
        return double(clock.elapsed()) >= seconds * 1000;
    });
    bool ended = false;
    QObject::connect(&recorder, &ScreenRecord::fileChanged, [&] { ended = true; });
    film.recorded_s = double(clock.nsecsElapsed()) / 1e9;
    film.cpu_s = cpuSeconds() - cpu_before_s;
    recorder.stop();
    waitFor([&] {
        film.most_bytes = std::max(film.most_bytes, residentBytes());
        return ended;
    });
    film.ended_s = double(clock.nsecsElapsed()) / 1e9 - film.recorded_s;
    film.file = recorder.getFile();
    return film;
}

double trackLength(const QString& file, const char* kind)
{
    return mediacheck::seconds(mediacheck::stream(mediacheck::probe(file), kind));
}

void offsets(double seconds, const QString& only)
{
    struct Capture
    {
        const char* name;
        const char* rate;
        SlowMachine::Hindrance hindrance;
    };
    std::printf("| capture | load | recorded s | picture s | sound s | first ms | last ms | spread ms | "
                "beeps | end s |\n"
                "|---|---|---|---|---|---|---|---|---|---|\n");
    for (const Capture& capture : {Capture{"25/s", nullptr, {}},
                                   {"10/s", nullptr, SlowMachine::every(100ms)},
                                   {"20/s", nullptr, SlowMachine::every(50ms)},
                                   {"33/s", "33/1", {}},
                                   {"bursts of 200 ms", nullptr, SlowMachine::inBursts(200ms, 400ms)},
                                   {"holes of 2 s", nullptr, SlowMachine::inBursts(2000ms, 10000ms)}}) {
        if (!only.isEmpty() && only != QLatin1String(capture.name))
            continue;
        for (const bool busy : {false, true}) {
            SlowMachine::instance().capture_rate = capture.rate;
            SlowMachine::instance().set(capture.hindrance);
            Film film;
            {
                const Load load(busy);
                film = record({0, 0, 1280, 720}, seconds);
            }
            const auto found = filmclock::offsets(film.file);
            std::printf("| %s | %s | %.2f | %.2f | %.2f | %.0f | %.0f | %.0f | %zu | %.2f |\n", capture.name,
                        busy ? "both cores" : "idle", film.recorded_s, trackLength(film.file, "video"),
                        trackLength(film.file, "audio"), found.empty() ? 0 : found.front().offset_s * 1000,
                        found.empty() ? 0 : found.back().offset_s * 1000, filmclock::spread(found) * 1000,
                        found.size(), film.ended_s);
            std::fflush(stdout);
            QFile::remove(film.file);
        }
    }
}

void memory(double seconds)
{
    const QRect all = QGuiApplication::primaryScreen()->geometry();
    const double before = residentBytes();
    const Load load(true);
    const Film film = record(all, seconds);
    std::printf("%dx%d, both cores taken: %.0f s recorded, film of %.2f s, %d different pictures, at most "
                "%.0f MiB (%.0f "
                "before), ended within %.2f s\n",
                all.width(), all.height(), film.recorded_s, trackLength(film.file, "video"),
                mediacheck::distinctFrames(film.file), film.most_bytes / kMegabyte, before / kMegabyte,
                film.ended_s);
    QFile::remove(film.file);
}

void cost(double seconds)
{
    const QRect all = QGuiApplication::primaryScreen()->geometry();
    const Film film = record(all, seconds, true);
    const double length_s = trackLength(film.file, "video");
    std::printf("%s, %dx%d: ran after %.3f s; %.2f s recorded, film of %.2f s, %d different pictures, "
                "%.3f CPU seconds a second\n",
                qPrintable(QGuiApplication::platformName()), all.width(), all.height(), film.started_s,
                film.recorded_s, length_s, mediacheck::distinctFrames(film.file),
                film.cpu_s / film.recorded_s);
    QFile::remove(film.file);
}

void finish(const QString& film)
{
    const QString copy = QFileInfo(film).absolutePath() + QStringLiteral("/bench_recording.mp4");
    QFile::remove(copy);
    if (!QFile::copy(film, copy))
        return;
    const double length_s =
        mediacheck::output(QStringLiteral("ffprobe"),
                           {"-v", "error", "-show_entries", "format=duration", "-of", "csv=p=0", film})
            .trimmed()
            .toDouble();
    const auto packets = int64_t(length_s * (25 + 44100.0 / 1024)); // as the recorder counts them
    QElapsedTimer clock;
    clock.start();
    const int code = multimedia::putIndexInFront(copy.toStdString(), packets);
    const double rewritten_s = double(clock.nsecsElapsed()) / 1e9;
    const bool plays = multimedia::hasPicture(copy.toStdString());
    std::printf("%s: %.0f s, %.0f MiB: result %d, %s, %.2f s, with the look at it %.2f s\n", qPrintable(film),
                length_s, double(QFileInfo(film).size()) / kMegabyte, code, plays ? "plays" : "does not play",
                rewritten_s, double(clock.nsecsElapsed()) / 1e9);
    QFile::remove(copy);
}

} // namespace

int main(int argc, char* argv[])
{
    QGuiApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: bench_recording offsets|memory|cost SECONDS | finish FILE...\n");
        return 2;
    }
    if (arguments[0] == QLatin1String("finish")) {
        for (const QString& film : arguments.mid(1))
            finish(film);
        return 0;
    }
    const auto picture = filmclock::play();
    if (!picture) {
        std::fprintf(stderr, "the moving picture does not start\n");
        return 1;
    }
    if (arguments[0] == QLatin1String("memory"))
        memory(arguments[1].toDouble());
    else if (arguments[0] == QLatin1String("cost"))
        cost(arguments[1].toDouble());
    else
        offsets(arguments[1].toDouble(), arguments.value(2));
    return 0;
}
