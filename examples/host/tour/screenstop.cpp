#include "examples/host/tour/tour.h"
#include "multimedia/screenrecord/screenrecord.h"

#include <QtGui/QGuiApplication>

using multimedia::ScreenRecord;

namespace {

void record(Tour& tour, bool is_gif, const QRect& rect, int duration_ms, const QString& name)
{
    ScreenRecord recorder;
    QString file;
    QObject::connect(&recorder, &ScreenRecord::fileChanged, [&](const QString& made) { file = made; });
    recorder.setScreen(QGuiApplication::primaryScreen());
    recorder.setRect(rect);
    recorder.setIsGif(is_gif);
    recorder.start();
    if (!tour.waitFor(QStringLiteral("the recording to begin"),
                      [&] { return recorder.getState() == ScreenRecord::Running; }))
        return;
    tour.pass(duration_ms);
    recorder.stop();
    if (tour.waitFor(QStringLiteral("the recording to end"), [&] { return !file.isEmpty(); }))
        tour.keep(file, name);
}

} // namespace

void screenStop(Tour& tour)
{
    const QRect whole(QPoint(0, 0), QGuiApplication::primaryScreen()->size());
    tour.say(QStringLiteral("The whole screen with the microphone, 6 seconds ..."));
    record(tour, false, whole, 6000, QStringLiteral("screen.mp4"));
    tour.say(QStringLiteral("A corner of it as a GIF, 3 seconds ..."));
    record(tour, true, {0, 0, 640, 400}, 3000, QStringLiteral("screen.gif"));
}
