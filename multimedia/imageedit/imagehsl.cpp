#include "multimedia/imageedit/imagehsl.h"

#include "multimedia/base/warning.h"
#include "multimedia/imageedit/hslkernel.h"

#include <QtConcurrent/QtConcurrentMap>
#include <QtGui/QImage>

#include <cmath>

namespace {

bool isAdjustable(const QImage& image, double hue, double saturation, double lightness)
{
    if (image.isNull())
        return false;
    if (image.depth() != 32) {
        multimedia::warning("modifyHsl", "image has not 32 bits a pixel");
        return false;
    }
    if (std::isnan(hue) || std::isnan(saturation) || std::isnan(lightness)) {
        multimedia::warning("modifyHsl", "offset is not a number");
        return false;
    }
    return true;
}

} // namespace

void modifyImageHslInThread(QImage& image, double hue, double saturation, double lightness, bool inThread)
{
    if (inThread)
        modifyHslInThread(image, hue, saturation, lightness);
    else
        modifyHsl(image, hue, saturation, lightness);
}

void modifyHsl(QImage& image, double hue, double saturation, double lightness)
{
    if (!isAdjustable(image, hue, saturation, lightness))
        return;
    const size_t count = size_t(image.width()) * size_t(image.height());
    ImageEdit::hslKernels().front().adjust(reinterpret_cast<uint32_t*>(image.bits()), count,
                                           {hue, saturation, lightness});
}

void modifyHslInThread(QImage& image, double hue, double saturation, double lightness)
{
    if (!isAdjustable(image, hue, saturation, lightness))
        return;
    QList<unsigned int*> lines;
    lines.reserve(image.height());
    for (int y = 0; y < image.height(); ++y)
        lines.append(reinterpret_cast<unsigned int*>(image.scanLine(y)));
    const ImageProcessFunctor job{image.width(), float(hue), float(saturation), float(lightness)};
    QtConcurrent::blockingMap(lines, job);
}

void ImageProcessFunctor::operator()(unsigned int* line) const
{
    ImageEdit::hslKernels().front().adjust(line, size_t(width), {hue, saturation, lightness});
}
