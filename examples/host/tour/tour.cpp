#include "examples/host/tour/tour.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QThread>

#include <cstdio>
#include <unistd.h>

namespace {

void end(QProcess& process)
{
    process.terminate();
    if (!process.waitForFinished(3000))
        process.kill();
    process.waitForFinished(1000);
}

void breathe()
{
    QCoreApplication::processEvents();
    QThread::msleep(5);
}

} // namespace

Tour::Tour(const QString& out_path, QQmlEngine& engine)
    : out(out_path)
    , qml_engine(engine)
{
    if (!out.mkpath(QStringLiteral(".")))
        fail(QStringLiteral("cannot make the folder %1").arg(out_path));
    startSurroundings();
}

Tour::~Tour()
{
    end(voice);
    end(moving_picture);
}

void Tour::startSurroundings()
{
    for (QProcess* process : {&moving_picture, &voice})
        process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    moving_picture.start(QStringLiteral(MOVING_PICTURE), QStringList());
    if (!moving_picture.waitForStarted() || !moving_picture.waitForReadyRead(10'000))
        fail(QStringLiteral("the moving picture does not start: ") + moving_picture.errorString());

    const QString speech = QDir::temp().filePath(QStringLiteral("speech.wav"));
    const QString text =
        QStringLiteral("This is the voice of the guided tour. It speaks into the microphone while the "
                       "screen is recorded, so that there is something to hear.");
    QProcess speaker;
    speaker.start(QStringLiteral("ffmpeg"),
                  {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-nostdin"),
                   QStringLiteral("-y"), QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                   QStringLiteral("flite=voice=slt:text='%1'").arg(text), speech});
    if (!speaker.waitForFinished() || speaker.exitCode() != 0)
        fail(QStringLiteral("the voice cannot be made: ") +
             QString::fromUtf8(speaker.readAllStandardError()));
    voice.start(QStringLiteral("feed-microphone"), {QStringLiteral("--loop"), speech});
    if (!voice.waitForStarted())
        fail(QStringLiteral("the voice does not speak: ") + voice.errorString());
}

void Tour::say(const QString& line) const
{
    std::printf("%s%s\n", isatty(STDOUT_FILENO) ? "\r\033[K" : "", qPrintable(line));
    std::fflush(stdout);
}

void Tour::showLive(const QString& line) const
{
    if (!isatty(STDOUT_FILENO))
        return;
    std::printf("\r%s\033[K", qPrintable(line));
    std::fflush(stdout);
}

void Tour::fail(const QString& line)
{
    has_failed = true;
    say(QStringLiteral("FAILED: ") + line);
}

void Tour::keep(const QString& file, const QString& name)
{
    const QString target = path(name);
    QFile::remove(target);
    // The library's temporary files may lie on another disk: QFile copies there.
    if (!QFile::rename(file, target)) {
        fail(QStringLiteral("%1 was not made").arg(name));
        return;
    }
    files += target;
}

bool Tour::make(const QString& file, const QString& arguments)
{
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"), QStringList{QStringLiteral("-v"), QStringLiteral("error"),
                                                       QStringLiteral("-nostdin"), QStringLiteral("-y")} +
                                               arguments.split(QLatin1Char(' ')) + QStringList{file});
    const bool made = ffmpeg.waitForFinished() && ffmpeg.exitCode() == 0;
    if (!made)
        fail(QStringLiteral("%1 cannot be made: ").arg(file) +
             QString::fromUtf8(ffmpeg.readAllStandardError()));
    return made;
}

void Tour::pass(int duration_ms) const
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < duration_ms)
        breathe();
}

bool Tour::waitFor(const QString& what, const std::function<bool()>& condition, int timeout_ms)
{
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > timeout_ms) {
            fail(QStringLiteral("waited in vain for ") + what);
            return false;
        }
        breathe();
    }
    return true;
}
