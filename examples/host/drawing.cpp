#include "examples/host/drawing.h"

#include <QtCore/QLineF>
#include <QtGui/QPainter>

void DrawnThing::extend(const QPointF& point)
{
    if (type != GraphicDefines::Pen && points.size() > 1)
        points.last() = point;
    else
        points += point;
}

void DrawnThing::paint(QPainter& painter) const
{
    painter.setPen(QPen(color, line_width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(Qt::NoBrush);
    switch (type) {
    case GraphicDefines::Rectangle:
        painter.drawRect(QRectF(points.first(), points.last()).normalized());
        break;
    case GraphicDefines::Ellipse:
        painter.drawEllipse(QRectF(points.first(), points.last()).normalized());
        break;
    case GraphicDefines::Arrow:
        paintArrow(painter);
        break;
    default:
        painter.drawPolyline(points);
        break;
    }
}

void DrawnThing::paintArrow(QPainter& painter) const
{
    const QLineF shaft(points.first(), points.last());
    painter.drawLine(shaft);
    for (const double angle : {150.0, -150.0}) {
        QLineF barb = QLineF::fromPolar(5 * line_width, shaft.angle() + angle);
        barb.translate(shaft.p2());
        painter.drawLine(barb);
    }
}
