#pragma once

#include "multimedia/facedetectcnn/facedetectcnn.h"

#include <QtGui/QImage>

#include <cmath>
#include <cstring>
#include <vector>

inline bool isSame(const std::vector<FaceRect_>& a, const std::vector<FaceRect_>& b)
{
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0);
}

/// Mean difference of neighbouring pixels inside `area`: what is left of detail.
inline double detail(const QImage& image, const QRect& area)
{
    double sum = 0.0;
    for (int y = area.top(); y < area.bottom(); ++y) {
        for (int x = area.left(); x < area.right(); ++x) {
            const int here = qGray(image.pixel(x, y));
            sum +=
                std::abs(here - qGray(image.pixel(x + 1, y))) + std::abs(here - qGray(image.pixel(x, y + 1)));
        }
    }
    return sum / area.width() / area.height();
}

/// The rectangle of all pixels that differ by more than `loss`: by far more than writing a JPEG once more
/// makes them, unless told otherwise.
inline QRect patchBetween(const QImage& before, const QImage& after, int loss = 40)
{
    QRect area;
    for (int y = 0; y < before.height(); ++y)
        for (int x = 0; x < before.width(); ++x)
            if (qAbs(qGreen(before.pixel(x, y)) - qGreen(after.pixel(x, y))) > loss)
                area |= QRect(x, y, 1, 1);
    return area;
}
