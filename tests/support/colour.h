#pragma once

#include <QtGui/QColor>

/// Whether two colours are alike but for what a lossy format or a scaler makes of them.
inline bool isNear(const QColor& a, const QColor& b)
{
    constexpr int kLoss = 12;
    return qAbs(a.red() - b.red()) < kLoss && qAbs(a.green() - b.green()) < kLoss &&
           qAbs(a.blue() - b.blue()) < kLoss;
}
