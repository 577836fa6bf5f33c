#pragma once

#include <QWidget>

namespace harkline::ui {

// One line of plain text, cut with an ellipsis when it does not fit. It never asks for more width
// than it is given, so a long name cannot widen the menu.
class ElidedLabel : public QWidget
{
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent = nullptr);

    void setText(const QString& text);
    QString text() const { return m_text; }
    // The text as it is drawn at the current width.
    QString shownText() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_text;
};

} // namespace harkline::ui
