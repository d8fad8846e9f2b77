#include "examples/host/photo.h"

#include "examples/host/files.h"
#include "multimedia/imageedit/imageeditprovider.h"
#include "multimedia/imageedit/imagehsl.h"
#include "multimedia/multimediaprovider.h"
#include "quillon/util.h"

#include <QtConcurrent/QtConcurrentRun>
#include <QtCore/QFile>
#include <QtCore/QPointer>
#include <QtGui/QImageReader>
#include <QtGui/QPainter>

#include <memory>

using ImageEdit::ImageEditProvider;

namespace {

constexpr QSize kPreview(1280, 1280);
constexpr qint64 kMostPixels = 100'000'000; // the library edits no larger pictures
constexpr int kUncompressed = 100;          // the quality that makes a PNG without compression

/// The picture in `file`, no larger than the preview.
QImage smallImage(const QString& file)
{
    QImageReader reader(file);
    reader.setDecideFormatFromContent(true);
    const QSize size = reader.size();
    if (size.width() > kPreview.width() || size.height() > kPreview.height())
        reader.setScaledSize(size.scaled(kPreview, Qt::KeepAspectRatio));
    return reader.read().convertToFormat(QImage::Format_ARGB32);
}

/// Writes the picture with other colours, losslessly.
bool writeColoured(const QString& source, const QString& target, double hue, double saturation,
                   double lightness)
{
    QImageReader reader(source);
    reader.setDecideFormatFromContent(true);
    QImage image = reader.read().convertToFormat(QImage::Format_ARGB32);
    modifyImageHslInThread(image, hue, saturation, lightness, true);
    return image.save(target, nullptr, kUncompressed);
}

} // namespace

Photo::Photo(QObject* parent)
    : QObject(parent)
    , editor(*MultimediaProvider::instance().imageEditHandler())
{
    connect(&editor, &ImageEditProvider::rotationChanged, this, &Photo::changed);
    connect(&editor, &ImageEditProvider::mirroredChanged, this, &Photo::changed);
    connect(&editor, &ImageEditProvider::faceBlurChanged, this, &Photo::showFace);
    connect(&editor, &ImageEditProvider::faceMaskFinished, this,
            [this](const QString&, const QString& blurred, bool good) {
                dropFile(blurred_file);
                blurred_file = blurred;
                is_blurring = false;
                Q_EMIT busyChanged();
                showFace();
                if (!good)
                    Q_EMIT blurFailed();
            });
    connect(this, &Photo::coloursChanged, this, &Photo::showColours);
    connect(&colouring, &QFutureWatcherBase::finished, this, [this] {
        if (colouring.result() && !cancelled)
            edit();
        else
            finish(cancelled ? 1 : 2);
    });
}

Photo::~Photo()
{
    colouring.waitForFinished();
    for (QString* file : {&upright_file, &blurred_file, &coloured_file})
        dropFile(*file);
}

QSize Photo::size() const
{
    return turns() % 2 == 0 ? file_size : file_size.transposed();
}

void Photo::setCrop(const QRectF& crop)
{
    if (crop_rect == crop)
        return;
    crop_rect = crop;
    Q_EMIT cropChanged();
}

QTransform Photo::orientation() const
{
    const QTransform mirrored(editor.mirrored() ? -1 : 1, 0, 0, 1, 0, 0);
    const QTransform turned = mirrored * QTransform().rotate(-90.0 * turns());
    const QPointF corner = turned.mapRect(QRectF(QPointF(), file_size)).topLeft();
    return turned * QTransform::fromTranslate(-corner.x(), -corner.y());
}

int Photo::turns() const
{
    return qRound(editor.rotation() / 90) % 4;
}

bool Photo::open(const QString& file)
{
    if (saving() || is_blurring)
        return false;
    const QString upright = uprightCopy(file);
    QString opened_file = upright.isEmpty() ? file : upright;
    editor.editImage(opened_file);
    if (editor.srcPath() != opened_file) {
        if (!upright.isEmpty())
            QFile::remove(upright);
        return false;
    }
    dropFile(upright_file);
    dropFile(blurred_file);
    upright_file = upright;
    working_file = opened_file;
    file_size = editor.imageSize();
    reset();
    Q_EMIT opened();
    return !small.isNull();
}

/// Cameras write pictures as they were held, and how to turn them. Empty if the picture stands upright.
QString Photo::uprightCopy(const QString& file)
{
    QImageReader reader(file);
    reader.setDecideFormatFromContent(true);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (reader.transformation() == QImageIOHandler::TransformationNone ||
        qint64(size.width()) * size.height() > kMostPixels)
        return {};
    const QString copy = Files::temporary(QStringLiteral("png"));
    return reader.read().save(copy, nullptr, kUncompressed) ? copy : QString();
}

void Photo::reset()
{
    editor.setRotation(0);
    editor.setMirrored(false);
    editor.setScaleMode(ImageEditProvider::S_ORIGINAL);
    editor.setFaceBlur(false);
    hue_offset = saturation_offset = lightness_offset = 0;
    drawing.clear();
    setCrop({0, 0, 1, 1});
    showFace();
    Q_EMIT coloursChanged();
}

void Photo::turn(int quarters)
{
    const QPointF middle = crop_rect.center() - QPointF(0.5, 0.5);
    QTransform around;
    around.rotate(-90.0 * quarters);
    const QSizeF side = quarters % 2 == 0 ? crop_rect.size() : crop_rect.size().transposed();
    QRectF turned(QPointF(), side);
    turned.moveCenter(around.map(middle) + QPointF(0.5, 0.5));
    editor.setRotation(90.0 * ((turns() + quarters + 4) % 4));
    setCrop(turned);
}

void Photo::mirror()
{
    // The library mirrors before it turns; a person mirrors what he sees.
    editor.setRotation(90.0 * ((4 - turns()) % 4));
    editor.setMirrored(!editor.mirrored());
    setCrop({1 - crop_rect.right(), crop_rect.y(), crop_rect.width(), crop_rect.height()});
}

void Photo::draw(const DrawnThing& thing)
{
    drawing += thing;
    Q_EMIT changed();
}

void Photo::extendLast(const QPointF& point)
{
    if (drawing.isEmpty())
        return;
    drawing.last().extend(point);
    Q_EMIT changed();
}

void Photo::undoDrawing()
{
    if (drawing.isEmpty())
        return;
    drawing.removeLast();
    Q_EMIT changed();
}

void Photo::toggleBlur()
{
    if (is_blurring)
        return;
    // With a blurred picture at hand the library only turns the switch.
    is_blurring = editor.faceBlurPath().isEmpty();
    Q_EMIT busyChanged();
    editor.faceMaskDetect(working_file);
}

void Photo::showFace()
{
    small = smallImage(editor.faceBlur() ? editor.faceBlurPath() : working_file);
    showColours();
}

void Photo::showColours()
{
    shown = small;
    if (hasColours())
        modifyImageHslInThread(shown, hue_offset, saturation_offset, lightness_offset, true);
    Q_EMIT changed();
}

bool Photo::hasColours() const
{
    return hue_offset != 0 || saturation_offset != 0 || lightness_offset != 0;
}

void Photo::save(const QString& target)
{
    if (saving() || working_file.isEmpty())
        return;
    edit_id = Util::uuid();
    save_path = target;
    edit_source = editor.faceBlur() ? editor.faceBlurPath() : working_file;
    cancelled = false;
    Q_EMIT busyChanged();
    if (!hasColours()) {
        edit();
        return;
    }
    coloured_file = Files::temporary(QStringLiteral("png"));
    colouring.setFuture(QtConcurrent::run(
        [source = edit_source, to = coloured_file, hue = hue_offset, saturation = saturation_offset,
         lightness = lightness_offset] { return writeColoured(source, to, hue, saturation, lightness); }));
    edit_source = coloured_file;
}

void Photo::edit()
{
    // The request must not outlive the file that it names, so it owns it.
    const auto source = std::make_shared<BaseFile>(edit_id, edit_source);
    const auto request = EditFileFilterPtr::create();
    request->file = source.get();
    request->savePath = save_path;
    request->editInfo = {
        {QStringLiteral("x1"), crop_rect.left()},          {QStringLiteral("y1"), crop_rect.top()},
        {QStringLiteral("x2"), crop_rect.right()},         {QStringLiteral("y2"), crop_rect.bottom()},
        {QStringLiteral("revolvecount"), turns()},         {QStringLiteral("mirrored"), editor.mirrored()},
        {QStringLiteral("editedImagePath"), saveDrawing()}};
    request->clipCallback = [self = QPointer<Photo>(this), source](int, int code) {
        if (self)
            self->finish(code);
    };
    editor.doEdit(request);
}

/// What is drawn as a file of its own, which the library removes; empty if there is nothing.
QString Photo::saveDrawing() const
{
    if (drawing.isEmpty())
        return {};
    QImage image(size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setTransform(orientation());
    for (const DrawnThing& thing : drawing)
        thing.paint(painter);
    painter.end();
    const QString file = Files::temporary(QStringLiteral("png"));
    return image.save(file) ? file : QString();
}

void Photo::cancel()
{
    cancelled = true;
    editor.cancelEdit(edit_id);
}

void Photo::finish(int code)
{
    dropFile(coloured_file);
    edit_id.clear();
    Q_EMIT busyChanged();
    Q_EMIT saved(code == 0 ? save_path : QString(), code == 1);
}

void Photo::dropFile(QString& file)
{
    if (!file.isEmpty())
        QFile::remove(file);
    file.clear();
}
