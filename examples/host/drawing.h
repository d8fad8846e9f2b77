#pragma once

#include "quillon/graphicdefines.h"

#include <QtCore/QList>
#include <QtGui/QColor>
#include <QtGui/QPolygonF>

class QPainter;

/// One thing drawn on a picture, in the picture's pixels.
struct DrawnThing
{
    GraphicDefines::GraphicType type = GraphicDefines::Pen;
    QColor color;
    double line_width = GraphicDefines::Medium;
    QPolygonF points; ///< of a pen; of the others the first and the last count

    void extend(const QPointF& point);
    void paint(QPainter& painter) const;

private:
    void paintArrow(QPainter& painter) const;
};

using Drawing = QList<DrawnThing>;
