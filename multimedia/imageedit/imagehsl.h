#pragma once

#include "multimedia/multimedia_global.h"

#include <cstdint>

class QImage;

/// @file
/// Colour adjustment: offsets on the hue, saturation and lightness of every pixel.
///
/// Offsets are fractions of the full scale: 0.1 adds a tenth of the range. Hue does not wrap, it stops at
/// either end; a grey pixel counts as hue -1. Alpha stays as it is and is never multiplied in.
///
/// For each pixel the outcome is, to the bit, that of a `QColor` whose `hueF()`, `saturationF()` and
/// `lightnessF()` are increased, clamped to 0..1 and given to `setHslF()`. That the first two of these are of
/// the HSV model and the last of the HSL model is part of the rule.
///
/// Only 32-bit images without row padding are meant. An image of another depth, and an offset that is not a
/// number, are refused with a log line and change nothing. Nothing may use the image meanwhile.

/// Calls `modifyHslInThread` or `modifyHsl`.
MULTIMEDIA_EXPORT void modifyImageHslInThread(QImage& image, double hue, double saturation, double lightness,
                                              bool inThread);

/// One pass over all pixels on the calling thread.
MULTIMEDIA_EXPORT void modifyHsl(QImage& image, double hue, double saturation, double lightness);

/// One job a row on the global thread pool; returns when all are done. The offsets are narrowed to `float`,
/// so a channel may differ in its last bit from that of `modifyHsl`.
MULTIMEDIA_EXPORT void modifyHslInThread(QImage& image, double hue, double saturation, double lightness);

/// The job for one row.
struct MULTIMEDIA_EXPORT ImageProcessFunctor
{
    int32_t width;    ///< pixels in a row
    float hue;        ///< offset
    float saturation; ///< offset
    float lightness;  ///< offset

    /// Adjusts the `width` pixels 0xAARRGGBB from `line` on.
    void operator()(unsigned int* line) const;
};
