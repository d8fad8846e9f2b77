#include "examples/host/tour/tour.h"
#include "multimedia/gifhandler/gifhandler.h"
#include "multimedia/videoprovider/videoprovider.h"

#include <QtCore/QFileInfo>

namespace {

void compress(Tour& tour, GifHandler& handler, const QString& name, GifCompressLevel level, const QSize& size)
{
    const QString source = tour.path(QStringLiteral("screen.gif"));
    const QString made = tour.path(QStringLiteral("made-") + name);
    bool finished = false;
    QObject scope;
    QObject::connect(&handler, &GifHandler::sigCompressComplete, &scope,
                     [&](const QString& id, bool) { finished = finished || id == name; });
    handler.compressGif(name, source, made, level, size);
    if (!tour.waitFor(QStringLiteral("the smaller GIF"), [&] { return finished; }))
        return;
    tour.say(QStringLiteral("%1 bytes became %2").arg(QFileInfo(source).size()).arg(QFileInfo(made).size()));
    tour.keep(made, name);
}

void convert(Tour& tour, const QString& source)
{
    VideoProvider& provider = *VideoProvider::instance();
    const auto request = QSharedPointer<ConvertFileFilter>::create();
    int reports = 0; // the first one only says that the source is there
    QObject scope;
    QObject::connect(&provider, &VideoProvider::convertProgressChanged, &scope,
                     [&](const ConvertFileFilterPtr&, int current, int total) {
                         tour.showLive(QStringLiteral("%1 of %2 s").arg(current).arg(total));
                     });
    QObject::connect(&provider, &VideoProvider::videoConvertComplete, &scope,
                     [&](const ConvertFileFilterPtr&, int) { ++reports; });
    provider.addConvertVideo(source, request);
    if (!tour.waitFor(QStringLiteral("the converted video"), [&] { return reports == 2; }))
        return;

    QString gif;
    bool finished = false;
    QObject::connect(&provider, &VideoProvider::gifConvertComplete, &scope,
                     [&](const QString& path, const QString&) {
                         gif = path;
                         finished = true;
                     });
    provider.mp4ToGif(request->outputFile, QStringLiteral("tour"));
    if (tour.waitFor(QStringLiteral("the GIF of the video"), [&] { return finished; }))
        tour.keep(gif, QStringLiteral("converted.gif"));
    tour.keep(request->outputFile, QStringLiteral("converted.mp4"));
}

} // namespace

void convertStop(Tour& tour)
{
    GifHandler handler;
    tour.say(QStringLiteral("The recorded GIF at half its size, at 200x125, and as H.264 ..."));
    compress(tour, handler, QStringLiteral("screen-half.gif"), kGifCompressHalf, {});
    compress(tour, handler, QStringLiteral("screen-200.gif"), 0, {200, 125});
    const QString movie = tour.path(QStringLiteral("made.mp4"));
    if (handler.gifTranscodeToMP4(QStringLiteral("movie"), tour.path(QStringLiteral("screen.gif")), movie))
        tour.keep(movie, QStringLiteral("screen-gif.mp4"));
    else
        tour.fail(QStringLiteral("the GIF did not become H.264"));

    const QString source = tour.path(QStringLiteral("clip.avi"));
    tour.say(QStringLiteral("A video of another format to MP4, and that to GIF ..."));
    if (tour.make(source, QStringLiteral("-f lavfi -i testsrc2=size=320x240:rate=25:duration=3 -f lavfi -i "
                                         "sine=duration=3 -c:v mpeg4 -c:a mp3")))
        convert(tour, source);
}
