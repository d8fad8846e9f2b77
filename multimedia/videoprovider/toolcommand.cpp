#include "multimedia/videoprovider/toolcommand.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDebug>
#include <QtCore/QDir>
#include <QtCore/QProcess>

#include <algorithm>

namespace toolcommand {

namespace {

constexpr int kMaxOutputBytes = 1 << 20;

} // namespace

QString quoted(const QString& path)
{
    // To QProcess three quotes are one that belongs to the word.
    return QLatin1Char('"') + QString(path).replace(QLatin1Char('"'), QLatin1String(R"(""")")) +
           QLatin1Char('"');
}

QString asOneWord(const QString& path)
{
    const bool is_plain = std::none_of(path.begin(), path.end(), [](QChar character) {
        return character.isSpace() || character == QLatin1Char('"');
    });
    return is_plain ? path : quoted(path);
}

QString inputPath(const QString& path)
{
    const QLatin1String file_scheme("file:");
    const bool is_plain =
        !path.isEmpty() && !path.startsWith(QLatin1Char('-')) && !path.contains(QLatin1Char(':'));
    if (is_plain || QDir::isAbsolutePath(path) || path.startsWith(file_scheme))
        return path;
    return file_scheme + path;
}

void logStartFailure(QProcess& process)
{
    QObject::connect(&process, &QProcess::errorOccurred, &process, [&process](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            qWarning() << "could not start" << process.program() << process.errorString();
    });
}

void start(QProcess& process, const QString& command)
{
    QStringList words = QProcess::splitCommand(command);
    const QString program = words.takeFirst();
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, words, QIODevice::ReadWrite);
}

QString standardErrorOf(const QString& command, int timeout_ms)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setReadChannel(QProcess::StandardError);
    logStartFailure(process);
    start(process, command);
    QByteArray output;
    const QDeadlineTimer deadline(timeout_ms);
    while (process.state() != QProcess::NotRunning && !deadline.hasExpired()) {
        process.waitForReadyRead(int(deadline.remainingTime()));
        output += process.readAllStandardError().left(kMaxOutputBytes - output.size());
    }
    output += process.readAllStandardError().left(kMaxOutputBytes - output.size());
    return text(output);
}

QString text(const QByteArray& standard_error)
{
    return QString::fromLatin1(standard_error.constData());
}

QString onOneLine(QString text)
{
    return text.remove(QLatin1String(R"(\r\n)")).simplified();
}

} // namespace toolcommand
