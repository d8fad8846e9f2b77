#pragma once

#include <QtCore/QProcess>

#include <memory>

/// A program that runs beside the test, ended with the object.
class Program : public QProcess
{
public:
    Program(const QString& program, const QStringList& arguments)
    {
        setProcessChannelMode(QProcess::ForwardedErrorChannel);
        start(program, arguments);
    }
    ~Program() override
    {
        terminate();
        waitForFinished();
    }
};

/// A tone in the rig's microphone.
inline std::unique_ptr<Program> playTone(double frequency_hz)
{
    const QString sine = QStringLiteral("sine=frequency=%1:sample_rate=48000").arg(frequency_hz);
    return std::make_unique<Program>("ffmpeg", QStringList{"-v", "error", "-nostdin", "-f", "lavfi", "-i",
                                                           sine, "-ac", "2", "-f", "pulse", "-device",
                                                           "micbus", "-buffer_duration", "100", "test"});
}
