#pragma once

#include <QtCore/QStringList>
#include <QtGui/QImage>

/// In words, the corners that are red. In the files it is the one at the top left, before they are turned.
inline QString redCorners(const QImage& image)
{
    constexpr int kInset = 5;
    QStringList red;
    for (const bool bottom : {false, true})
        for (const bool right : {false, true})
            if (image
                    .pixelColor(right ? image.width() - kInset : kInset,
                                bottom ? image.height() - kInset : kInset)
                    .red() > 150)
                red += QLatin1String(bottom ? "bottom " : "top ") + QLatin1String(right ? "right" : "left");
    return red.join(", ");
}
