#include "examples/host/tour/mediatable.h"

#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>

#include <cstdio>

namespace {

struct Row
{
    QString container = QStringLiteral("-");
    QStringList codecs;
    QString size = QStringLiteral("-");
    QString frames = QStringLiteral("-");
    QString duration = QStringLiteral("-");
    QString level = QStringLiteral("-");
    QString verdict = QStringLiteral("unreadable");
};

QJsonObject probe(const QString& file)
{
    QProcess process;
    process.start(QStringLiteral("ffprobe"),
                  {QStringLiteral("-v"), QStringLiteral("quiet"), QStringLiteral("-of"),
                   QStringLiteral("json"), QStringLiteral("-show_format"), QStringLiteral("-show_streams"),
                   QStringLiteral("-count_frames"), file});
    process.waitForFinished(-1);
    return QJsonDocument::fromJson(process.readAllStandardOutput()).object();
}

/// Decodes everything; the errors, and in `level` the mean level of the sound.
QString decode(const QString& file, QString& level)
{
    QProcess process;
    process.start(QStringLiteral("ffmpeg"),
                  {QStringLiteral("-hide_banner"), QStringLiteral("-nostdin"), QStringLiteral("-nostats"),
                   QStringLiteral("-loglevel"), QStringLiteral("level+info"), QStringLiteral("-i"), file,
                   QStringLiteral("-af"), QStringLiteral("volumedetect"), QStringLiteral("-f"),
                   QStringLiteral("null"), QStringLiteral("-")});
    process.waitForFinished(-1);
    const QString log = QString::fromUtf8(process.readAllStandardError());
    const auto mean = QRegularExpression(QStringLiteral("mean_volume: (\\S+ dB)")).match(log);
    if (mean.hasMatch())
        level = mean.captured(1);
    const auto error = QRegularExpression(QStringLiteral("\\[(?:error|fatal)\\] (.*)")).match(log);
    if (error.hasMatch())
        return error.captured(1);
    return process.exitCode() == 0 ? QString() : QStringLiteral("exit code %1").arg(process.exitCode());
}

Row read(const QString& file)
{
    Row row;
    const QJsonObject probed = probe(file);
    const QJsonObject format = probed[QStringLiteral("format")].toObject();
    if (format.isEmpty())
        return row;
    row.container = format[QStringLiteral("format_name")].toString().section(QLatin1Char(','), 0, 0);
    row.duration = QString::number(format[QStringLiteral("duration")].toString().toDouble(), 'f', 2) +
                   QStringLiteral(" s");
    const QJsonArray streams = probed[QStringLiteral("streams")].toArray();
    for (const QJsonValue stream : streams) {
        row.codecs += stream[QStringLiteral("codec_name")].toString();
        if (stream[QStringLiteral("codec_type")].toString() == QLatin1String("video")) {
            row.size = QStringLiteral("%1x%2")
                           .arg(stream[QStringLiteral("width")].toInt())
                           .arg(stream[QStringLiteral("height")].toInt());
            row.frames = stream[QStringLiteral("nb_read_frames")].toString();
        }
    }
    const QString errors = decode(file, row.level);
    row.verdict = errors.isEmpty() ? QStringLiteral("decodes") : errors;
    return row;
}

} // namespace

bool printMediaTable(const QStringList& files)
{
    constexpr auto layout = "%-28s %-9s %-12s %-10s %7s %10s %10s  %s\n";
    bool good = true;
    std::printf(layout, "file", "container", "codecs", "size", "frames", "duration", "sound", "check");
    for (const QString& file : files) {
        const Row row = read(file);
        good = good && row.verdict == QLatin1String("decodes");
        std::printf(layout, qPrintable(QFileInfo(file).fileName()), qPrintable(row.container),
                    qPrintable(row.codecs.join(QLatin1Char('+'))), qPrintable(row.size),
                    qPrintable(row.frames), qPrintable(row.duration), qPrintable(row.level),
                    qPrintable(row.verdict));
    }
    return good;
}
