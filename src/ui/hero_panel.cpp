#include "ui/hero_panel.h"

#include <QEasingCurve>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

namespace {

constexpr int ArrowSize = 34;
constexpr int ArrowMargin = 12;
// The window's frame is rounded; the banner follows its upper corners.
constexpr qreal CornerRadius = 11.0;

QRectF coverSource(const QSize &image, const QSizeF &target)
{
    // Crop the image to the target's aspect ratio around its centre, so it fills without bars.
    const qreal scale = qMax(target.width() / image.width(), target.height() / image.height());
    const QSizeF visible(target.width() / scale, target.height() / scale);
    return QRectF(QPointF((image.width() - visible.width()) / 2, (image.height() - visible.height()) / 2), visible);
}

} // namespace

HeroPanel::HeroPanel(QWidget *parent)
    : QWidget(parent)
{
    setMouseTracking(true);
    setAttribute(Qt::WA_OpaquePaintEvent, false);
    m_timer.setInterval(SlideInterval);
    connect(&m_timer, &QTimer::timeout, this, &HeroPanel::advance);
    m_transition.setDuration(TransitionDuration);
    m_transition.setStartValue(0.0);
    m_transition.setEndValue(1.0);
    m_transition.setEasingCurve(QEasingCurve::InOutCubic);
    connect(&m_transition, &QVariantAnimation::valueChanged, this, [this](const QVariant &value) {
        m_progress = value.toReal();
        update();
    });
    connect(&m_transition, &QVariantAnimation::finished, this, [this] {
        m_previous = -1;
        m_progress = 1.0;
        update();
    });
}

void HeroPanel::setSlides(const QList<QImage> &slides)
{
    m_transition.stop();
    m_slides = slides;
    m_current = 0;
    m_previous = -1;
    m_progress = 1.0;
    if (m_slides.size() > 1)
        m_timer.start(SlideInterval);
    else
        m_timer.stop();
    update();
}

QRect HeroPanel::leftArrowRect() const
{
    const int top = int(height() * 0.43) - ArrowSize / 2;
    return QRect(ArrowMargin, top, ArrowSize, ArrowSize);
}

QRect HeroPanel::rightArrowRect() const
{
    const int top = int(height() * 0.43) - ArrowSize / 2;
    return QRect(width() - ArrowMargin - ArrowSize, top, ArrowSize, ArrowSize);
}

void HeroPanel::showSlide(int index)
{
    if (m_slides.isEmpty())
        return;
    const int count = int(m_slides.size());
    const int target = ((index % count) + count) % count;
    if (target == m_current) {
        m_timer.start(SlideInterval);
        return;
    }
    m_direction = target == (m_current + 1) % count ? 1 : -1;
    startTransition(target);
    m_timer.start(TransitionDuration + SlideInterval);
}

void HeroPanel::advance()
{
    if (m_slides.size() < 2)
        return;
    m_direction = 1;
    startTransition((m_current + 1) % int(m_slides.size()));
    m_timer.start(SlideInterval);
}

void HeroPanel::startTransition(int target)
{
    m_transition.stop();
    m_previous = m_current;
    m_current = target;
    m_progress = 0.0;
    m_transition.start();
    update();
}

void HeroPanel::updateHover(const QPointF &position)
{
    const bool inside = m_slides.size() > 1 && rect().contains(position.toPoint())
        && position.y() < height() * 0.68;
    if (inside != m_arrowsVisible) {
        m_arrowsVisible = inside;
        update();
    }
    const QPoint point = position.toPoint();
    if (inside && (leftArrowRect().contains(point) || rightArrowRect().contains(point)))
        setCursor(Qt::PointingHandCursor);
    else
        unsetCursor();
}

void HeroPanel::mouseMoveEvent(QMouseEvent *event)
{
    updateHover(event->position());
    event->ignore();
}

void HeroPanel::mousePressEvent(QMouseEvent *event)
{
    const QPoint point = event->position().toPoint();
    if (event->button() == Qt::LeftButton && m_slides.size() > 1) {
        if (leftArrowRect().contains(point)) {
            showSlide(m_current - 1);
            event->accept();
            return;
        }
        if (rightArrowRect().contains(point)) {
            showSlide(m_current + 1);
            event->accept();
            return;
        }
    }
    // Anything else goes on to the window, which moves itself when the banner's top is dragged.
    event->ignore();
}

void HeroPanel::leaveEvent(QEvent *event)
{
    if (m_arrowsVisible) {
        m_arrowsVisible = false;
        update();
    }
    unsetCursor();
    QWidget::leaveEvent(event);
}

void HeroPanel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);

    QPainterPath clip;
    const QRectF area = rect();
    clip.moveTo(area.left(), area.bottom() + 1);
    clip.lineTo(area.left(), area.top() + CornerRadius);
    clip.arcTo(QRectF(area.left(), area.top(), 2 * CornerRadius, 2 * CornerRadius), 180, -90);
    clip.lineTo(area.right() + 1 - CornerRadius, area.top());
    clip.arcTo(QRectF(area.right() + 1 - 2 * CornerRadius, area.top(), 2 * CornerRadius, 2 * CornerRadius), 90, -90);
    clip.lineTo(area.right() + 1, area.bottom() + 1);
    clip.closeSubpath();
    painter.setClipPath(clip);
    painter.fillRect(rect(), QColor(0x18, 0x0e, 0x24));

    if (!m_slides.isEmpty()) {
        if (m_previous >= 0) {
            // The old slide drifts away a little while the new one glides in over it and fades
            // up: a calm parallax cross-fade rather than a hard wipe.
            const qreal w = width();
            paintSlide(painter, m_previous, -m_direction * m_progress * w * 0.08, 1.0);
            paintSlide(painter, m_current, m_direction * (1.0 - m_progress) * w * 0.08, m_progress);
        } else {
            paintSlide(painter, m_current, 0, 1.0);
        }
    }

    paintIndicators(painter);
    if (m_arrowsVisible) {
        paintArrow(painter, leftArrowRect(), true);
        paintArrow(painter, rightArrowRect(), false);
    }
}

void HeroPanel::paintSlide(QPainter &painter, int index, qreal offset, qreal opacity) const
{
    const QImage &image = m_slides.at(index);
    if (image.isNull())
        return;
    painter.save();
    painter.setOpacity(opacity);
    // 8 % wider on each side than the panel, as far as a slide ever drifts, so no edge shows.
    const QRectF target(offset - width() * 0.08, 0, width() * 1.16, height());
    painter.drawImage(target, image, coverSource(image.size(), target.size()));
    painter.restore();
}

void HeroPanel::paintArrow(QPainter &painter, const QRect &area, bool pointsLeft) const
{
    painter.save();
    painter.setPen(QPen(QColor(255, 255, 255, 90), 1));
    painter.setBrush(QColor(24, 14, 36, 120));
    painter.drawEllipse(QRectF(area).adjusted(0.5, 0.5, -0.5, -0.5));
    QPen chevron(QColor(0xf5, 0xf5, 0xf5), 2.2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(chevron);
    painter.setBrush(Qt::NoBrush);
    const QPointF c = QRectF(area).center();
    const qreal s = pointsLeft ? 1.0 : -1.0;
    const QPointF points[] = {{c.x() + 3 * s, c.y() - 7}, {c.x() - 4 * s, c.y()}, {c.x() + 3 * s, c.y() + 7}};
    painter.drawPolyline(points, 3);
    painter.restore();
}

void HeroPanel::paintIndicators(QPainter &painter) const
{
    if (m_slides.size() < 2)
        return;
    painter.save();
    painter.setPen(Qt::NoPen);
    const qreal dot = 6, active = 18, gap = 6;
    const qreal total = active + (m_slides.size() - 1) * dot + (m_slides.size() - 1) * gap;
    qreal x = (width() - total) / 2;
    const qreal y = height() - 20;
    for (int i = 0; i < m_slides.size(); ++i) {
        const qreal w = i == m_current ? active : dot;
        painter.setBrush(i == m_current ? QColor(255, 255, 255, 235) : QColor(255, 255, 255, 110));
        painter.drawRoundedRect(QRectF(x, y, w, dot), dot / 2, dot / 2);
        x += w + gap;
    }
    painter.restore();
}
