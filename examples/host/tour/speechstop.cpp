#include "examples/host/tour/tour.h"
#include "multimedia/audiorecorder/recordengine.h"
#include "multimedia/multimediaprovider.h"

#include <QtCore/QElapsedTimer>

namespace {

constexpr int kDuration_ms = 9000; // the voice says its sentences once
constexpr int kPatience_ms = 120'000;

/// Records the microphone; the path of the file, empty if there is none.
QString record(Tour& tour, RecordEngine& engine)
{
    QString path;
    QObject scope;
    QObject::connect(&engine, &RecordEngine::recordFinished, &scope,
                     [&](const QVariantMap& map) { path = map[QStringLiteral("filePath")].toString(); });
    if (!engine.startRecord()) {
        tour.fail(QStringLiteral("no recording to turn into text"));
        return {};
    }
    tour.pass(kDuration_ms);
    engine.stopRecord();
    tour.waitFor(QStringLiteral("the end of the recording"), [&] { return !path.isEmpty(); });
    return path;
}

} // namespace

void speechStop(Tour& tour)
{
    RecordEngine& engine = *MultimediaProvider::instance().recordEngine();
    engine.setStoragePath(tour.path(QString()));
    const QString name = QStringLiteral("speech.aac");
    const QString recorded = record(tour, engine);
    if (recorded.isEmpty())
        return;
    tour.keep(recorded, name);

    QString text;
    bool ended = false;
    QObject scope;
    QObject::connect(&engine, &RecordEngine::speechRecognizedResultChanged, &scope,
                     [&](const QString&, const QString& result) {
                         if (result != text)
                             tour.say(QStringLiteral("  ... %1").arg(result));
                         text = result;
                     });
    QObject::connect(&engine, &RecordEngine::recognizeCompletedChanged, &scope, [&] { ended = true; });
    tour.say(
        QStringLiteral("What is said in %1 ms of the microphone, as it is understood:").arg(kDuration_ms));
    QElapsedTimer clock;
    clock.start();
    engine.recognizeFile(name, tour.path(name));
    if (!tour.waitFor(
            QStringLiteral("the text"), [&] { return ended; }, kPatience_ms))
        return;
    if (text.isEmpty())
        tour.fail(QStringLiteral("nothing was understood"));
    tour.say(QStringLiteral("In %1 ms: \"%2\"").arg(clock.elapsed()).arg(text));
}
