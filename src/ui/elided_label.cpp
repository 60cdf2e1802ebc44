#include "ui/elided_label.h"

#include <QPainter>
#include <QStyle>
#include <QStyleOption>

ElidedLabel::ElidedLabel(const QString &text, QWidget *parent)
    : QLabel(parent)
{
    setText(text);
}

void ElidedLabel::setText(const QString &text)
{
    m_text = text;
    QLabel::setText(text);
    updateToolTip();
}

QSize ElidedLabel::minimumSizeHint() const
{
    return QSize(fontMetrics().horizontalAdvance(QStringLiteral("...")), QLabel::minimumSizeHint().height());
}

void ElidedLabel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    QStyleOption option;
    option.initFrom(this);
    style()->drawPrimitive(QStyle::PE_Widget, &option, &painter, this);
    const QRect area = contentsRect();
    const QString shown = fontMetrics().elidedText(m_text, Qt::ElideRight, area.width());
    painter.setPen(palette().color(foregroundRole()));
    painter.drawText(area, int(alignment()) | Qt::TextSingleLine, shown);
}

void ElidedLabel::resizeEvent(QResizeEvent *event)
{
    QLabel::resizeEvent(event);
    updateToolTip();
}

void ElidedLabel::updateToolTip()
{
    const bool shortened = fontMetrics().horizontalAdvance(m_text) > contentsRect().width();
    setToolTip(shortened ? m_text : QString());
}
