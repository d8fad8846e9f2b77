// recordhost HOME END: an application that records a part of the screen and ends, for better or worse.
//
// HOME is where its recorder lives: "stack", "static" or "heap", where nobody deletes it. END is how it goes:
//   wait     it does not: it records until it is killed; a line on its standard input makes it stop first
//   return   it leaves its event loop and main
//   asked    the same, soon, though the desktop may still be asking its user
//   noloop   it never has an event loop
//   exit     it calls exit() in the midst of its event loop
//   xserver  it kills its X server, after which Qt ends the process
// It prints "recording" once it does.

#include "multimedia/screenrecord/screenrecord.h"

#include <QtCore/QSocketNotifier>
#include <QtCore/QTimer>
#include <QtGui/QGuiApplication>

#include <csignal>
#include <cstdio>
#include <memory>
#include <thread>
#include <unistd.h>

using multimedia::ScreenRecord;

namespace {

constexpr int kRecorded_ms = 1500;
constexpr int kAsked_ms = 500;

std::unique_ptr<ScreenRecord> static_recorder;

void waitUntilRecording(const ScreenRecord& recorder)
{
    while (recorder.getState() != ScreenRecord::Running)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::puts("recording");
    std::fflush(stdout);
}

int run(QGuiApplication& application, ScreenRecord& recorder, const QString& end)
{
    recorder.setScreen(QGuiApplication::primaryScreen());
    recorder.setRect({0, 0, 320, 180});
    recorder.start();
    if (end == "noloop") {
        waitUntilRecording(recorder);
        std::this_thread::sleep_for(std::chrono::milliseconds(kRecorded_ms));
        return 0;
    }
    QObject::connect(&recorder, &ScreenRecord::stateChanged, [&](ScreenRecord::State state) {
        if (state != ScreenRecord::Running)
            return;
        std::puts("recording");
        std::fflush(stdout);
        QTimer::singleShot(kRecorded_ms, [&application, end] {
            if (end == "return")
                application.quit();
            else if (end == "exit")
                std::exit(0);
            else if (end == "xserver")
                ::kill(pid_t(qEnvironmentVariableIntValue("RIG_X_PID")), SIGKILL);
        });
    });
    if (end == "asked")
        QTimer::singleShot(kAsked_ms, &application, &QCoreApplication::quit);
    QSocketNotifier told(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&told, &QSocketNotifier::activated, [&] {
        told.setEnabled(false);
        recorder.stop();
    });
    told.setEnabled(end == "wait");
    return QGuiApplication::exec();
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const QString home = arguments.value(1);
    const QString end = arguments.value(2);
    if (home == "stack") {
        ScreenRecord recorder;
        return run(application, recorder, end);
    }
    static_recorder = std::make_unique<ScreenRecord>();
    return run(application, home == "heap" ? *static_recorder.release() : *static_recorder, end);
}
