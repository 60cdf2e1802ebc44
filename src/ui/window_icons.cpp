#include "ui/window_icons.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

#include <functional>

namespace WindowIcons {

namespace {

// Drawn on a 16-unit grid at two scales, so both standard and high-density screens get a
// pixmap of their own instead of a blurred one.
QIcon draw(const QColor &color, const std::function<void(QPainter &)> &paint)
{
    QIcon icon;
    for (const int scale : {1, 2, 3}) {
        QPixmap pixmap(16 * scale, 16 * scale);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(scale, scale);
        painter.setPen(QPen(color, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter.setBrush(Qt::NoBrush);
        paint(painter);
        painter.end();
        pixmap.setDevicePixelRatio(scale);
        icon.addPixmap(pixmap);
    }
    return icon;
}

} // namespace

QIcon minimize(const QColor &color)
{
    return draw(color, [](QPainter &p) { p.drawLine(QPointF(4, 8.5), QPointF(12, 8.5)); });
}

QIcon close(const QColor &color)
{
    return draw(color, [](QPainter &p) {
        p.drawLine(QPointF(4.5, 4.5), QPointF(11.5, 11.5));
        p.drawLine(QPointF(11.5, 4.5), QPointF(4.5, 11.5));
    });
}

QIcon sliders(const QColor &color)
{
    return draw(color, [color](QPainter &p) {
        const qreal rows[] = {4, 8, 12};
        const qreal knobs[] = {10.5, 5.5, 9};
        for (int i = 0; i < 3; ++i) {
            p.drawLine(QPointF(2.5, rows[i]), QPointF(13.5, rows[i]));
            p.save();
            p.setBrush(color);
            p.setPen(Qt::NoPen);
            p.drawEllipse(QPointF(knobs[i], rows[i]), 1.9, 1.9);
            p.restore();
        }
    });
}

QIcon folder(const QColor &color)
{
    return draw(color, [](QPainter &p) {
        QPainterPath path;
        path.moveTo(2, 4.5);
        path.lineTo(6.2, 4.5);
        path.lineTo(7.6, 6);
        path.lineTo(14, 6);
        path.lineTo(14, 12.5);
        path.lineTo(2, 12.5);
        path.closeSubpath();
        p.drawPath(path);
    });
}

} // namespace WindowIcons
