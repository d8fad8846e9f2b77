#include "tests/support/mediacheck.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QProcess>
#include <QtCore/QSet>
#include <QtTest/QtTest>

#include <cmath>
#include <cstring>

namespace mediacheck {

namespace {
const auto kQuiet = QStringList{QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-nostdin")};
constexpr int kToolTimeout_ms = 120'000;
} // namespace

QByteArray output(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(kToolTimeout_ms) || process.exitCode() != 0) {
        QTest::qFail(qPrintable(program + QLatin1Char(' ') + arguments.join(QLatin1Char(' ')) +
                                QStringLiteral(": ") + QString::fromUtf8(process.readAllStandardError())),
                     __FILE__, __LINE__);
        return {};
    }
    return process.readAllStandardOutput();
}

QJsonObject probe(const QString& path)
{
    return QJsonDocument::fromJson(
               output(QStringLiteral("ffprobe"),
                      {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-of"),
                       QStringLiteral("json"), QStringLiteral("-show_format"),
                       QStringLiteral("-show_streams"), QStringLiteral("-count_frames"), path}))
        .object();
}

QJsonObject stream(const QJsonObject& probed, const char* kind)
{
    const QJsonArray streams = probed[QStringLiteral("streams")].toArray();
    for (const QJsonValue entry : streams) {
        if (entry[QStringLiteral("codec_type")].toString() == QLatin1String(kind))
            return entry.toObject();
    }
    return {};
}

QString decodeErrors(const QString& path)
{
    QProcess process;
    process.start(QStringLiteral("ffmpeg"),
                  kQuiet + QStringList{QStringLiteral("-i"), path, QStringLiteral("-f"),
                                       QStringLiteral("null"), QStringLiteral("-")});
    if (!process.waitForFinished(kToolTimeout_ms))
        return QStringLiteral("ffmpeg did not end");
    const QString errors = QString::fromUtf8(process.readAllStandardError());
    return process.exitCode() == 0 ? errors
                                   : errors + QStringLiteral(" exit code %1").arg(process.exitCode());
}

int distinctFrames(const QString& path)
{
    const QByteArray lines =
        output(QStringLiteral("ffmpeg"),
               kQuiet + QStringList{QStringLiteral("-i"), path, QStringLiteral("-an"), QStringLiteral("-f"),
                                    QStringLiteral("framemd5"), QStringLiteral("-")});
    QSet<QByteArray> hashes;
    for (const QByteArray& line : lines.split('\n')) {
        if (!line.isEmpty() && !line.startsWith('#'))
            hashes.insert(line.split(',').last().trimmed());
    }
    return hashes.size();
}

QImage frameAt(const QString& path, int index)
{
    const QByteArray png = output(
        QStringLiteral("ffmpeg"),
        kQuiet + QStringList{QStringLiteral("-i"), path, QStringLiteral("-vf"),
                             QStringLiteral("select=eq(n\\,%1)").arg(index), QStringLiteral("-frames:v"),
                             QStringLiteral("1"), QStringLiteral("-f"), QStringLiteral("image2pipe"),
                             QStringLiteral("-c:v"), QStringLiteral("png"), QStringLiteral("-")});
    return QImage::fromData(png, "PNG");
}

std::vector<int> lumas(const QString& path)
{
    const QByteArray bytes = output(
        QStringLiteral("ffmpeg"),
        kQuiet + QStringList{QStringLiteral("-i"), path, QStringLiteral("-map"), QStringLiteral("0:v:0"),
                             QStringLiteral("-vf"), QStringLiteral("extractplanes=y,crop=1:1"),
                             QStringLiteral("-vsync"), QStringLiteral("passthrough"), QStringLiteral("-f"),
                             QStringLiteral("rawvideo"), QStringLiteral("-")});
    std::vector<int> values;
    for (const char byte : bytes)
        values.push_back(uint8_t(byte));
    return values;
}

std::vector<double> pictureTimes(const QString& path)
{
    const QByteArray lines =
        output(QStringLiteral("ffprobe"),
               {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-select_streams"),
                QStringLiteral("v:0"), QStringLiteral("-show_entries"),
                QStringLiteral("frame=best_effort_timestamp_time"), QStringLiteral("-of"),
                QStringLiteral("csv=p=0"), path});
    std::vector<double> times;
    for (const QByteArray& line : lines.split('\n')) {
        if (!line.isEmpty())
            times.push_back(line.split(',').first().toDouble());
    }
    return times;
}

std::vector<int16_t> decodeAudio(const QString& path, int sample_rate)
{
    const QByteArray bytes =
        output(QStringLiteral("ffmpeg"),
               kQuiet + QStringList{QStringLiteral("-i"), path, QStringLiteral("-vn"), QStringLiteral("-ac"),
                                    QStringLiteral("1"), QStringLiteral("-ar"), QString::number(sample_rate),
                                    QStringLiteral("-f"), QStringLiteral("s16le"), QStringLiteral("-")});
    std::vector<int16_t> samples(size_t(bytes.size()) / sizeof(int16_t));
    std::memcpy(samples.data(), bytes.constData(), samples.size() * sizeof(int16_t));
    return samples;
}

double toneShare(const std::vector<int16_t>& samples, int sample_rate, double frequency_hz)
{
    const size_t window = size_t(sample_rate) / 10;
    int windows = 0;
    int tones = 0;
    for (size_t begin = 0; begin + window <= samples.size(); begin += window) {
        double energy = 0;
        double real = 0;
        double imaginary = 0;
        for (size_t i = begin; i < begin + window; ++i) {
            const double phase = 2 * M_PI * frequency_hz * double(i) / sample_rate;
            real += samples[i] * std::cos(phase);
            imaginary += samples[i] * std::sin(phase);
            energy += double(samples[i]) * samples[i];
        }
        ++windows;
        tones += 2 * (real * real + imaginary * imaginary) > 0.98 * energy * double(window) && energy > 0;
    }
    return windows > 0 ? double(tones) / windows : 0;
}

double rms(const std::vector<int16_t>& samples)
{
    double energy = 0;
    for (const int16_t sample : samples)
        energy += double(sample) * sample;
    return samples.empty() ? 0 : std::sqrt(energy / double(samples.size()));
}

} // namespace mediacheck
