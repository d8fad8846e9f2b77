#include "examples/host/tour/tour.h"
#include "multimedia/videocapture/videocapture.h"
#include "multimedia/videoeditor/videoeditor.h"

#include <QtGui/QImage>
#include <QtGui/QPainter>
#include <QtQml/QQmlEngine>
#include <QtQuick/QQuickImageProvider>

#include <set>

namespace {

constexpr int kFrames = 12;
constexpr int kFrameWidth = 120;

/// Previews the video and draws its thumbnails beside each other.
void showStrip(Tour& tour, const QString& video, const QString& name)
{
    VideoEditor& editor = *VideoEditor::instance();
    auto* images =
        static_cast<QQuickImageProvider*>(tour.engine().imageProvider(QStringLiteral("videoimageprovider")));
    std::set<qlonglong> ids;
    QObject scope;
    QObject::connect(&editor, &VideoEditor::grabFrameID, &scope, [&](qlonglong id) { ids.insert(id); });
    editor.setImageFrameSize({kFrameWidth, kFrameWidth * 4 / 5});
    editor.setTotalGrabImageCount(kFrames);
    editor.preview(video);
    if (!tour.waitFor(QStringLiteral("the thumbnails"), [&] { return int(ids.size()) == kFrames; }))
        return;
    QImage strip;
    int column = 0;
    for (const qlonglong id : ids) {
        const QImage frame = images->requestImage(QString::number(id), nullptr, {});
        if (strip.isNull())
            strip = QImage(frame.width() * kFrames, frame.height(), QImage::Format_RGB32);
        QPainter(&strip).drawImage(frame.width() * column++, 0, frame);
    }
    const QString made = tour.path(QStringLiteral("made.png"));
    strip.save(made);
    tour.keep(made, name);
}

void clip(Tour& tour, const QString& video, const QString& name)
{
    const QString made = tour.path(QStringLiteral("made.mp4"));
    BaseFile file(QStringLiteral("tour"), video);
    const auto request = EditFileFilterPtr::create();
    int result = -1;
    request->file = &file;
    request->savePath = made;
    request->editInfo = {{QStringLiteral("startTime"), 2000LL}, {QStringLiteral("endTime"), 6000LL}};
    request->clipCallback = [&](int, int code) { result = code; };
    VideoEditor::instance()->clip(request);
    if (tour.waitFor(QStringLiteral("the clip"), [&] { return result >= 0; }))
        tour.keep(made, name);
}

} // namespace

void videoStop(Tour& tour)
{
    const QString video = tour.path(QStringLiteral("video.mp4"));
    tour.say(QStringLiteral(
        "A video of 10 seconds: its strip, its facts, seconds 2 to 6 without re-encoding ..."));
    if (!tour.make(video, QStringLiteral("-f lavfi -i testsrc2=size=640x360:rate=25:duration=10 -f lavfi -i "
                                         "sine=duration=10 -c:v libx264 -pix_fmt yuv420p -g 25 -c:a aac")))
        return;
    showStrip(tour, video, QStringLiteral("video-strip.png"));
    const QSize size = VideoCapture::instance()->videoSourceSize(video);
    tour.say(QStringLiteral("%1 x %2 pixels").arg(size.width()).arg(size.height()));
    clip(tour, video, QStringLiteral("video-clip.mp4"));
}
