#include "multimedia/imageedit/editdescription.h"

#include "multimedia/base/picturefile.h"
#include "multimedia/base/warning.h"
#include "quillon/util.h"

#include <QtCore/QFile>
#include <QtGui/QPainter>
#include <QtGui/QTransform>

#include <algorithm>
#include <cmath>

namespace ImageEdit {

using namespace multimedia;

namespace {

constexpr int kMaxSide = 2560;
/// Far beyond any picture, and sums of a few of them still fit into an int.
constexpr double kMaxCoordinate = 1 << 28;

int truncated(double value)
{
    return std::isnan(value) ? 0 : int(std::clamp(value, -kMaxCoordinate, kMaxCoordinate));
}

/// Indexed pictures cannot be painted on, grey ones would turn a coloured drawing grey.
QImage paintable(QImage image)
{
    if (image.depth() >= 16 && image.format() != QImage::Format_Grayscale16)
        return image;
    const bool has_alpha = image.hasAlphaChannel();
    return std::move(image).convertToFormat(has_alpha ? QImage::Format_ARGB32_Premultiplied
                                                      : QImage::Format_RGB32);
}

} // namespace

EditDescription::EditDescription(const QVariantMap& edit_info)
    : mirrored(edit_info.value(QStringLiteral("mirrored")).toBool())
    , need_mask_photo(edit_info.value(QStringLiteral("needMaskPhoto")).toBool())
    , turns(edit_info.value(QStringLiteral("revolvecount")).toInt())
    , mask_photo_path(edit_info.value(QStringLiteral("maskPhotoPath")).toString())
    , overlay_path(Util::toLocalFile(edit_info.value(QStringLiteral("editedImagePath")).toString()))
    , x1(edit_info.value(QStringLiteral("x1")).toDouble())
    , y1(edit_info.value(QStringLiteral("y1")).toDouble())
    , x2(edit_info.value(QStringLiteral("x2")).toDouble())
    , y2(edit_info.value(QStringLiteral("y2")).toDouble())
{}

QRect EditDescription::cropRect(const QSize& size) const
{
    const double dx = x2 - x1;
    const double dy = y2 - y1;
    const double w = size.width();
    const double h = size.height();

    int left = 0;
    int top = 0;
    int width = truncated(dx * w);
    int height = truncated(dy * h);
    switch (turns) {
    case 0:
        left = truncated(w * x1);
        top = truncated(h * y1);
        break;
    case 1:
        left = truncated((1 - y2) * w);
        top = truncated(x1 * h);
        width = truncated(w * dy);
        height = truncated(h * dx);
        break;
    case 2:
        left = truncated((1 - x2) * w);
        top = truncated((1 - y2) * h);
        break;
    case 3:
        left = truncated(y1 * w);
        top = truncated((1 - x2) * h);
        width = truncated(w * dy);
        height = truncated(h * dx);
        break;
    default:
        break;
    }
    if (mirrored)
        left = size.width() - width - left;
    return {left, top, width, height};
}

QImage EditDescription::readCropped(PictureReader& reader) const
{
    const QRect crop = cropRect(reader.size());
    reader.setClipRect(crop);
    const int longest = std::max(crop.width(), crop.height());
    if (longest > kMaxSide) {
        const double k = longest / double(kMaxSide);
        const QSize scaled(int(crop.width() / k), int(crop.height() / k));
        reader.setScaledSize(scaled.expandedTo({1, 1}));
    }
    return readImage(reader);
}

QImage EditDescription::applied(QImage image) const
{
    if (image.isNull())
        return image;
    if (mirrored)
        image = image.mirrored(true, false);
    if (turns != 0) // Whole turns are left out: the sine of a large angle is not exact.
        image = image.transformed(QTransform().rotate(turns % 4 * -90.0), Qt::FastTransformation);
    if (!overlay_path.isEmpty())
        drawOverlay(image);
    return image;
}

void EditDescription::drawOverlay(QImage& image) const
{
    const QImage overlay = loadImage(overlay_path);
    if (overlay.isNull()) {
        multimedia::warning("drawOverlay", "cannot read the drawing");
        return;
    }
    image = paintable(std::move(image));
    const QRect source(truncated(x1 * overlay.width()), truncated(y1 * overlay.height()),
                       truncated((x2 - x1) * overlay.width()), truncated((y2 - y1) * overlay.height()));
    QPainter painter(&image);
    painter.drawImage(image.rect(), overlay, source);
    painter.end();
    QFile::remove(overlay_path);
}

} // namespace ImageEdit
