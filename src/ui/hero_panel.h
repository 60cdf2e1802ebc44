#pragma once

#include <QImage>
#include <QList>
#include <QRect>
#include <QTimer>
#include <QVariantAnimation>
#include <QWidget>

// The banner carousel at the top of the installer window: slides that change by themselves
// and through two arrows that appear while the pointer is over the upper part of the banner.
class HeroPanel : public QWidget
{
    Q_OBJECT

public:
    static constexpr int SlideInterval = 6000;
    static constexpr int TransitionDuration = 1150;

    explicit HeroPanel(QWidget *parent = nullptr);

    void setSlides(const QList<QImage> &slides);
    int slideCount() const { return int(m_slides.size()); }
    int currentSlide() const { return m_current; }
    bool arrowsVisible() const { return m_arrowsVisible; }
    bool transitionRunning() const { return m_previous >= 0; }
    int autoAdvanceInterval() const { return m_timer.interval(); }
    QRect leftArrowRect() const;
    QRect rightArrowRect() const;

    // Shows the given slide with a transition; the next automatic change waits a full period
    // after the transition has ended.
    void showSlide(int index);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    void advance();
    void startTransition(int target);
    void updateHover(const QPointF &position);
    void paintSlide(QPainter &painter, int index, qreal offset, qreal opacity) const;
    void paintArrow(QPainter &painter, const QRect &area, bool pointsLeft) const;
    void paintIndicators(QPainter &painter) const;

    QList<QImage> m_slides;
    int m_current = 0;
    int m_previous = -1;
    int m_direction = 1;
    qreal m_progress = 1.0;
    bool m_arrowsVisible = false;
    QTimer m_timer;
    QVariantAnimation m_transition;
};
