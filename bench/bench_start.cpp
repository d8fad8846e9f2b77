// What the library adds to the start of a host: from the start of the process to the first picture of its
// window, with the library loaded and its types registered, beside the same host without it.
//
// Runs inside tests/rig/with-desktop. Both hosts are processes of their own and take turns; medians are told.

#include "bench/median.h"

#include <QtCore/QFile>
#include <QtCore/QLibrary>
#include <QtCore/QProcess>
#include <QtGui/QGuiApplication>
#include <QtQml/QQmlApplicationEngine>
#include <QtQuick/QQuickWindow>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>
#include <vector>

namespace {
constexpr int kRounds = 15;

struct Figure
{
    const char* name;
    const char* unit;
};
constexpr std::array<Figure, 6> kFigures{{{"loading the library", "ms"},
                                          {"registering its types", "ms"},
                                          {"until the first picture", "ms"},
                                          {"processor time", "ms"},
                                          {"memory", "kB"},
                                          {"of it written to, and so not shared", "kB"}}};

double now_ms()
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double processor_ms()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto ms = [](const timeval& time) {
        return double(time.tv_sec) * 1e3 + double(time.tv_usec) / 1e3;
    };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

/// Kilobytes, as the system sums them up.
double memory(const QByteArray& what)
{
    QFile file(QStringLiteral("/proc/self/smaps_rollup"));
    file.open(QIODevice::ReadOnly);
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.startsWith(what))
            return line.simplified().split(' ').value(1).toDouble();
    }
    return 0;
}

/// One start. Says its figures on one line, and is gone.
int host(int argc, char* argv[])
{
    const double start = now_ms();
    double loaded = 0;
    double registered = 0;
    QGuiApplication application(argc, argv);
    QQmlApplicationEngine engine;
    const bool has_library = argc > 2;
    if (has_library) {
        const double before = now_ms();
        QLibrary library(QString::fromLocal8Bit(argv[2]));
        // MultimediaProvider::registType: this program must not be linked with what it loads.
        const auto regist = reinterpret_cast<void (*)(QQmlEngine&)>(
            library.resolve("_ZN18MultimediaProvider10registTypeER10QQmlEngine"));
        if (!regist) {
            std::fprintf(stderr, "%s\n", qPrintable(library.errorString()));
            return 1;
        }
        loaded = now_ms() - before;
        regist(engine);
        registered = now_ms() - before - loaded;
    }
    engine.loadData(QByteArray(has_library ? "import Quillon 1.0\n" : "") +
                    "import QtQuick 2.15\nimport QtQuick.Window 2.15\n"
                    "Window { visible: true; width: 400; height: 300; Text { text: 'Hello' } }");
    auto* window = qobject_cast<QQuickWindow*>(engine.rootObjects().value(0));
    if (!window)
        return 1;
    const auto report = [=] {
        std::printf("%f %f %f %f %f %f\n", loaded, registered, now_ms() - start, processor_ms(),
                    memory("Rss:"), memory("Private_Dirty:"));
        std::fflush(stdout);
        std::_Exit(0);
    };
    QObject::connect(window, &QQuickWindow::frameSwapped, &application, report, Qt::DirectConnection);
    return QGuiApplication::exec();
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc > 1)
        return host(argc, argv);
    std::array<std::array<std::vector<double>, kFigures.size()>, 2> taken; // without and with the library
    for (int round = 0; round < kRounds; ++round) {
        for (const bool with : {false, true}) {
            QProcess process;
            process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
            process.start(QString::fromLocal8Bit(argv[0]),
                          QStringList{"host"} + (with ? QStringList{MULTIMEDIA_LIBRARY} : QStringList()));
            process.waitForFinished();
            const QList<QByteArray> values = process.readAllStandardOutput().simplified().split(' ');
            if (process.exitCode() != 0 || size_t(values.size()) != kFigures.size())
                return 1;
            for (size_t i = 0; i < kFigures.size(); ++i)
                taken[with][i].push_back(values[int(i)].toDouble());
        }
    }
    for (size_t i = 0; i < kFigures.size(); ++i)
        std::printf("%-36s %9.1f %s with the library, %9.1f %s without\n", kFigures[i].name,
                    median(taken[1][i]), kFigures[i].unit, median(taken[0][i]), kFigures[i].unit);
    return 0;
}
