#include "examples/host/tour/tour.h"
#include "multimedia/imageedit/imagehsl.h"
#include "multimedia/multimediaprovider.h"

#include <QtGui/QImage>

using ImageEdit::ImageEditProvider;

namespace {

/// Writes `source` edited into the folder.
void edit(Tour& tour, const QString& source, const QString& name, const QVariantMap& edits)
{
    QString made = tour.path(QStringLiteral("edit-") + name);
    if (MultimediaProvider::instance().imageEditHandler()->doEditSync(source, made, edits))
        tour.keep(made, name);
    else
        tour.fail(QStringLiteral("%1 was not made").arg(name));
}

void blurFaces(Tour& tour, const QString& photo)
{
    ImageEditProvider& editor = *MultimediaProvider::instance().imageEditHandler();
    QString blurred;
    bool finished = false;
    QObject scope;
    QObject::connect(&editor, &ImageEditProvider::faceMaskFinished, &scope,
                     [&](const QString&, const QString& path, bool) {
                         blurred = path;
                         finished = true;
                     });
    editor.editImage(photo);
    editor.faceMaskDetect(photo);
    if (!tour.waitFor(QStringLiteral("the blur of faces"), [&] { return finished; }))
        return;
    if (!blurred.isEmpty())
        tour.keep(blurred, QStringLiteral("photo-faces.jpg"));
    editor.editReset();
}

} // namespace

void pictureStop(Tour& tour)
{
    const QString photo = QStringLiteral(TOUR_PHOTO);
    tour.say(QStringLiteral(
        "A portrait (NASA, public domain): faces, a crop turned and mirrored, other colours ..."));
    blurFaces(tour, photo);
    edit(tour, photo, QStringLiteral("photo-crop.jpg"),
         {{QStringLiteral("x1"), 0.1},
          {QStringLiteral("y1"), 0.0},
          {QStringLiteral("x2"), 0.7},
          {QStringLiteral("y2"), 0.5}});
    edit(tour, photo, QStringLiteral("photo-turned.jpg"),
         {{QStringLiteral("x1"), 0.0},
          {QStringLiteral("y1"), 0.0},
          {QStringLiteral("x2"), 1.0},
          {QStringLiteral("y2"), 1.0},
          {QStringLiteral("revolvecount"), 1},
          {QStringLiteral("mirrored"), true}});

    QImage image = QImage(photo).convertToFormat(QImage::Format_ARGB32);
    modifyHsl(image, 0.4, 0.2, 0);
    const QString made = tour.path(QStringLiteral("edit-colours.jpg"));
    if (image.save(made))
        tour.keep(made, QStringLiteral("photo-colours.jpg"));
    else
        tour.fail(QStringLiteral("the colours were not saved"));
}
