#include "multimedia/videoprovider/videoprovider.h"

#include "multimedia/base/processend.h"
#include "multimedia/base/warning.h"
#include "multimedia/videoprovider/toolcommand.h"
#include "multimedia/videoprovider/tooloutput.h"
#include "quillon/util.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QLoggingCategory>
#include <QtCore/QSignalBlocker>
#include <QtCore/QSize>
#include <QtCore/QStandardPaths>

namespace {

enum ResultCode : int { Exists = 0, Cancelled = 1, Missing = 2 };

constexpr auto kOutputPath = "outputPath";
constexpr auto kDuration = "Duration";
/// More than the tool prints between the label of a duration and its end.
constexpr int kUnmatchedTextLength = 256;

} // namespace

VideoProvider* VideoProvider::instance()
{
    static VideoProvider provider;
    return &provider;
}

VideoProvider::VideoProvider()
    : m_tempDir(QStandardPaths::writableLocation(QStandardPaths::TempLocation) + QDir::separator())
{
    qRegisterMetaType<ConvertFileFilterPtr>("ConvertFileFilterPtr");
    connect(&m_process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            &VideoProvider::finished, Qt::UniqueConnection);
    connect(&m_process, &QProcess::readyReadStandardError, this, &VideoProvider::readyReadStandardError,
            Qt::UniqueConnection);
    toolcommand::logStartFailure(m_process);
    m_processEnd = std::make_unique<multimedia::ProcessEnd>([this] { end(); });
}

VideoProvider::~VideoProvider()
{
    end();
}

void VideoProvider::end()
{
    m_convertQueue.clear();
    QList<QProcess*> processes = findChildren<QProcess*>();
    processes.append(&m_process);
    for (QProcess* process : processes) {
        if (process->state() == QProcess::NotRunning)
            continue;
        const QSignalBlocker no_result(process);
        process->kill();
        process->waitForFinished();
        QFile::remove(process->property(kOutputPath).toString());
    }
}

QString VideoProvider::toolPath(const char* tool) const
{
    return QCoreApplication::applicationDirPath() + QLatin1Char('/') + QLatin1String(tool);
}

void VideoProvider::addConvertVideo(QString filePath, ConvertFileFilterPtr fileFilter)
{
    if (!fileFilter)
        fileFilter = ConvertFileFilterPtr::create();
    m_convertQueue.append({filePath, fileFilter});
    if (m_process.state() == QProcess::NotRunning)
        convertVideoToMp4();
    const bool exists = QFile::exists(filePath);
    fileFilter->outputFile = filePath;
    Q_EMIT videoConvertComplete(fileFilter, exists ? Exists : Missing);
}

void VideoProvider::convertVideoToMp4()
{
    if (m_convertQueue.isEmpty() || m_process.state() != QProcess::NotRunning)
        return;
    m_currentFile = Util::toLocalFile(m_convertQueue.first().first);
    const QString target =
        Util::newFile(m_tempDir + QFileInfo(m_currentFile).completeBaseName() + QStringLiteral(".mp4"));
    m_process.setProperty(kOutputPath, target);
    m_unmatchedText.clear();
    toolcommand::start(m_process, QStringLiteral("%1 -hide_banner -v info -i %2 -y %3")
                                      .arg(toolcommand::quoted(toolPath("ffmpeg")),
                                           toolcommand::quoted(toolcommand::inputPath(m_currentFile)),
                                           toolcommand::quoted(target)));
}

void VideoProvider::readyReadStandardError()
{
    const QString text = m_unmatchedText + toolcommand::text(m_process.readAllStandardError());
    m_unmatchedText.clear();
    if (m_convertQueue.isEmpty())
        return;
    const ConvertFileFilterPtr filter = m_convertQueue.first().second;
    const QVariant total = m_process.property(kDuration);
    if (total.isValid()) {
        const int seconds = tooloutput::progress(text);
        if (seconds >= 0)
            Q_EMIT convertProgressChanged(filter, seconds, total.toInt());
        return;
    }
    const int seconds = tooloutput::duration(text);
    if (seconds < 0) {
        m_unmatchedText = text.right(kUnmatchedTextLength);
        return;
    }
    m_process.setProperty(kDuration, seconds);
    Q_EMIT convertProgressChanged(filter, 0, seconds);
}

void VideoProvider::finished(int /*exitCode*/, QProcess::ExitStatus /*exitStatus*/)
{
    if (m_convertQueue.isEmpty())
        return;
    const QString target = m_process.property(kOutputPath).toString();
    fetchVideoFirstFrame(target);
    // Off the queue before the report: whoever is told may add the next file or cancel.
    const ConvertFileFilterPtr filter = m_convertQueue.takeFirst().second;
    if (m_cancelled) {
        m_cancelled = false;
        Q_EMIT videoConvertComplete(filter, Cancelled);
    } else {
        const bool exists = QFile::exists(target);
        filter->outputFile = exists ? target : QString();
        Q_EMIT videoConvertComplete(filter, exists ? Exists : Missing);
    }
    convertVideoToMp4();
}

void VideoProvider::cancelConvertVideo()
{
    if (m_process.state() != QProcess::NotRunning)
        m_process.kill();
    if (!m_convertQueue.isEmpty())
        m_cancelled = true;
}

QString VideoProvider::fetchVideoFirstFrame(QString filePath)
{
    filePath = Util::toLocalFile(filePath);
    QString result =
        m_tempDir + QLatin1Char('/') + QFileInfo(filePath).completeBaseName() + QStringLiteral(".jpg");
    // The tool would take it for the pattern of many names.
    const QString made =
        result.contains(QLatin1Char('%')) ? m_tempDir + Util::uuid() + QStringLiteral(".jpg") : result;
    const QString errors = toolcommand::standardErrorOf(
        QStringLiteral("%1 -hide_banner -v error -i %2 -vframes 1 -y %3")
            .arg(toolcommand::quoted(toolPath("ffmpeg")),
                 toolcommand::quoted(toolcommand::inputPath(filePath)), toolcommand::quoted(made)));
    qCDebug(MultimediaCategoryLogging) << errors;
    if (!errors.isEmpty())
        return {};
    if (made != result && (!QFile::exists(made) || (QFile::remove(result), !QFile::rename(made, result))))
        return {};
    return result;
}

int VideoProvider::readVideoRotation(QString filePath)
{
    filePath = Util::toLocalFile(filePath);
    return tooloutput::rotation(
        toolcommand::standardErrorOf(QStringLiteral("%1 -hide_banner %2")
                                         .arg(toolcommand::quoted(toolPath("ffprobe")),
                                              toolcommand::quoted(toolcommand::inputPath(filePath)))));
}

void VideoProvider::mp4ToGif(QString mp4Path, QString identity, int width, int height, int frameRate)
{
    startConversion({QStringLiteral(".gif"), "gifpath", {}, &VideoProvider::gifConvertComplete}, mp4Path,
                    identity, {width, height}, frameRate);
}

void VideoProvider::gifToMp4(QString gifPath, QString identity, int width, int height, int frameRate)
{
    startConversion({QStringLiteral(".mp4"),
                     "mp4path",
                     {QStringLiteral("-c:v h264_qsv")},
                     &VideoProvider::mp4ConvertComplete},
                    gifPath, identity, {width, height}, frameRate);
}

void VideoProvider::startConversion(const Conversion& conversion, const QString& source,
                                    const QString& identity, const QSize& size, int frame_rate)
{
    const QString target = m_tempDir + QFileInfo(source).completeBaseName() + conversion.suffix;
    auto* process = new QProcess(this);
    process->setProperty("identity", identity);
    process->setProperty(conversion.path_property, target);
    if (!QFile::exists(target)) // else it is another's, and stays as it is
        process->setProperty(kOutputPath, target);
    toolcommand::logStartFailure(*process);
    // Nobody reads what it prints, and it must not pile up.
    connect(process, &QProcess::readyReadStandardOutput, this,
            [process] { process->readAllStandardOutput(); });
    connect(process, &QProcess::readyReadStandardError, this, [process] { process->readAllStandardError(); });
    connect(process, &QProcess::errorOccurred, process, [process](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            process->deleteLater();
    });
    connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            [this, process, conversion](int exit_code, QProcess::ExitStatus exit_status) {
                process->deleteLater();
                // FFmpeg 7 says that all is well even when it did not overwrite.
                const bool is_done = exit_code == 0 && exit_status == QProcess::NormalExit &&
                                     process->property(kOutputPath).isValid();
                const QString path = process->property(conversion.path_property).toString();
                Q_EMIT(this->*conversion.complete)
                (is_done ? path : QString(), process->property("identity").toString());
            });

    QStringList arguments{QStringLiteral("-hide_banner"),
                          QStringLiteral("-v"),
                          QStringLiteral("info"),
                          QStringLiteral("-i"),
                          toolcommand::quoted(toolcommand::inputPath(source)),
                          QStringLiteral("-r"),
                          QString::number(frame_rate),
                          toolcommand::asOneWord(target)};
    if (size.width() != -1 && size.height() != -1)
        arguments += QStringLiteral("-s %1x%2").arg(size.width()).arg(size.height());
    arguments += conversion.trailing_options;
    const QString command =
        toolcommand::asOneWord(toolPath("ffmpeg")) + QLatin1Char(' ') + arguments.join(QLatin1Char(' '));
    qCDebug(MultimediaCategoryLogging).noquote() << "cmd:" << command;
    toolcommand::start(*process, command);
}
