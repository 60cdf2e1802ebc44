#pragma once

#include <QLabel>

// A one-line label that shortens its text with an ellipsis instead of growing or clipping, and
// then shows the whole text as its tooltip. Status texts are longer in some languages than the
// progress row is wide.
class ElidedLabel : public QLabel
{
    Q_OBJECT

public:
    explicit ElidedLabel(const QString &text, QWidget *parent = nullptr);

    void setText(const QString &text);
    QString fullText() const { return m_text; }
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void updateToolTip();

    QString m_text;
};
