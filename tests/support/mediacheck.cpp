#include "tests/support/mediacheck.h"

#include "tests/support/soundcheck.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QProcess>
#include <QtCore/QSet>
#include <QtTest/QtTest>

namespace mediacheck {

namespace {
constexpr int kToolTimeout_ms = 120'000;

/// What `ffmpeg` makes of a file, on its standard output.
QByteArray converted(const QString& path, const QStringList& arguments)
{
    return output("ffmpeg",
                  QStringList{"-v", "error", "-nostdin", "-i", path} + arguments + QStringList{"-"});
}
} // namespace

QByteArray output(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(kToolTimeout_ms) || process.exitCode() != 0) {
        const QString errors = QString::fromUtf8(process.readAllStandardError());
        QTest::qFail(qPrintable(program + " " + arguments.join(' ') + ": " + errors), __FILE__, __LINE__);
        return {};
    }
    return process.readAllStandardOutput();
}

QJsonObject probe(const QString& path)
{
    const QByteArray json = output(
        "ffprobe", {"-v", "error", "-of", "json", "-show_format", "-show_streams", "-count_frames", path});
    return QJsonDocument::fromJson(json).object();
}

QJsonObject stream(const QJsonObject& probed, const char* kind)
{
    const QJsonArray streams = probed["streams"].toArray();
    for (const QJsonValue entry : streams) {
        if (entry["codec_type"].toString() == QLatin1String(kind))
            return entry.toObject();
    }
    return {};
}

double seconds(const QJsonObject& part)
{
    return part["duration"].toString().toDouble();
}

QString decodeErrors(const QString& path)
{
    QProcess process;
    process.start("ffmpeg", {"-v", "error", "-nostdin", "-i", path, "-f", "null", "-"});
    if (!process.waitForFinished(kToolTimeout_ms))
        return "ffmpeg did not end";
    const QString errors = QString::fromUtf8(process.readAllStandardError());
    return process.exitCode() == 0 ? errors : errors + QString(" exit code %1").arg(process.exitCode());
}

int distinctFrames(const QString& path)
{
    QSet<QByteArray> hashes;
    for (const QByteArray& line : converted(path, {"-an", "-f", "framemd5"}).split('\n')) {
        if (!line.isEmpty() && !line.startsWith('#'))
            hashes.insert(line.split(',').last().trimmed());
    }
    return hashes.size();
}

QImage frameAt(const QString& path, int index)
{
    const QString select = QString("select=eq(n\\,%1)").arg(index);
    return QImage::fromData(
        converted(path, {"-vf", select, "-frames:v", "1", "-f", "image2pipe", "-c:v", "png"}), "PNG");
}

std::vector<int> lumas(const QString& path)
{
    std::vector<int> values;
    for (const char byte : converted(path, {"-map", "0:v:0", "-vf", "extractplanes=y,crop=1:1", "-vsync",
                                            "passthrough", "-f", "rawvideo"}))
        values.push_back(uint8_t(byte));
    return values;
}

std::vector<double> pictureTimes(const QString& path)
{
    const QByteArray lines = output("ffprobe", {"-v", "error", "-select_streams", "v:0", "-show_entries",
                                                "frame=best_effort_timestamp_time", "-of", "csv=p=0", path});
    std::vector<double> times;
    for (const QByteArray& line : lines.split('\n')) {
        if (!line.isEmpty())
            times.push_back(line.split(',').first().toDouble());
    }
    return times;
}

std::vector<int16_t> decodeAudio(const QString& path, int sample_rate)
{
    return soundcheck::samplesOf(
        converted(path, {"-vn", "-ac", "1", "-ar", QString::number(sample_rate), "-f", "s16le"}));
}

} // namespace mediacheck
