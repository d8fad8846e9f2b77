#include "examples/host/tour/tour.h"
#include "multimedia/audiorecorder/recordengine.h"
#include "multimedia/multimediaprovider.h"

namespace {

constexpr int kDuration_ms = 2500;
constexpr int kBands = 48;
constexpr int kSamples = 30;

/// One block character for each number from 0 to 1.
QString bars(const QVariantList& values)
{
    static const QString levels = QStringLiteral(" ▁▂▃▄▅▆▇█");
    QString line;
    for (const QVariant& value : values)
        line += levels[qBound(0, int(value.toDouble() * levels.size()), int(levels.size()) - 1)];
    return line;
}

QVariantList toVariants(const QList<double>& values)
{
    QVariantList list;
    for (const double value : values)
        list += value;
    return list;
}

void record(Tour& tour, RecordEngine& engine, int type, const QString& title, const QString& name)
{
    QVariantMap result;
    qlonglong duration_ms = 0;
    QVariantList loudest;
    double loudest_sum = -1;
    QObject scope;
    QObject::connect(&engine, &RecordEngine::updateRecordInfo, &scope,
                     [&](qlonglong ms) { duration_ms = ms; });
    QObject::connect(&engine, &RecordEngine::recordFinished, &scope,
                     [&](const QVariantMap& map) { result = map; });
    QObject::connect(&engine, &RecordEngine::voiceAmplitudeChanged, &scope, [&](const QVariantList& bands) {
        double sum = 0;
        for (const QVariant& band : bands)
            sum += band.toDouble();
        if (sum > loudest_sum) {
            loudest_sum = sum;
            loudest = bands;
        }
        tour.showLive(bars(bands));
    });
    if (!engine.startRecord(type)) {
        tour.fail(QStringLiteral("no recording of ") + title);
        return;
    }
    tour.pass(kDuration_ms);
    engine.stopRecord();
    if (!tour.waitFor(QStringLiteral("the end of the recording"), [&] { return !result.isEmpty(); }))
        return;
    QList<double> samples;
    for (const QVariant& sample : result[QStringLiteral("sample")].toList())
        samples += sample.toDouble();
    tour.say(QStringLiteral("%1 |%2| %3 ms, %4 bytes, waveform |%5|")
                 .arg(title, -12)
                 .arg(bars(loudest))
                 .arg(duration_ms, 5)
                 .arg(result[QStringLiteral("size")].toLongLong(), 6)
                 .arg(bars(toVariants(engine.convertSamples(kSamples, samples)))));
    tour.keep(result[QStringLiteral("filePath")].toString(), name);
}

} // namespace

void voiceStop(Tour& tour)
{
    struct Type
    {
        int number;
        const char* title;
        const char* name;
    };
    constexpr Type kTypes[] = {
        {0, "as it is", "voice-plain.aac"},    {1, "high pitch", "voice-high.aac"},
        {2, "low pitch", "voice-low.aac"},     {3, "tremolo", "voice-tremolo.aac"},
        {4, "unchanged", "voice-through.aac"}, {5, "half speed", "voice-slow.aac"},
        {8, "double speed", "voice-fast.aac"},
    };
    RecordEngine& engine = *MultimediaProvider::instance().recordEngine();
    engine.setStoragePath(tour.path(QString()));
    engine.setSpectrumNum(kBands);
    tour.say(QStringLiteral("The microphone in every voice, %1 ms each; the spectrum shown is the loudest:")
                 .arg(kDuration_ms));
    for (const Type& type : kTypes)
        record(tour, engine, type.number, QLatin1String(type.title), QLatin1String(type.name));
}
