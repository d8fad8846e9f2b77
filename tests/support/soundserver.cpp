#include "tests/support/soundserver.h"

#include "tests/support/paths.h"

#include <QtTest/QtTest>

#include <csignal>

SoundServer::~SoundServer()
{
    if (server.state() == QProcess::NotRunning)
        return;
    server.terminate();
    server.waitForFinished();
}

QByteArray SoundServer::control(const QStringList& arguments)
{
    QProcess pactl;
    pactl.start(QStringLiteral("pactl"), arguments);
    pactl.waitForFinished();
    if (pactl.exitStatus() != QProcess::NormalExit || pactl.exitCode() != 0)
        qWarning("pactl %s: %s", qPrintable(arguments.join(QLatin1Char(' '))),
                 pactl.readAllStandardError().constData());
    return pactl.readAllStandardOutput().trimmed();
}

QString SoundServer::addSink(const QString& name, const QString& description)
{
    return QString::fromLatin1(
        control({"load-module", "module-null-sink", "sink_name=" + name, "rate=44100", "channels=2",
                 "format=s16le", "norewinds=1", "sink_properties=device.description=" + description}));
}

void SoundServer::unload(const QString& module)
{
    control({"unload-module", module});
}

bool SoundServer::answers()
{
    return QProcess::execute(QStringLiteral("sh"), {"-c", "pactl info >/dev/null 2>&1"}) == 0;
}

void SoundServer::kill()
{
    if (server.state() != QProcess::NotRunning) {
        server.kill();
        server.waitForFinished();
        return;
    }
    const auto pid = static_cast<pid_t>(qEnvironmentVariableIntValue("RIG_PULSE_PID"));
    QVERIFY(pid > 0);
    ::kill(pid, SIGKILL);
    QTRY_VERIFY(!answers());
}

void SoundServer::start()
{
    server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server.start(QLatin1String(kRigFolder) + QLatin1String("/pulse-server"),
                 {qEnvironmentVariable("RIG_DIR")});
    QTRY_VERIFY(answers());
}
