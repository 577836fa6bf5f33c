#include "ElidedLabel.h"

#include "Access.h"

#include <QPainter>

namespace harkline::ui {

ElidedLabel::ElidedLabel(QWidget* parent) : QWidget(parent)
{
    access::setRole(this, QAccessible::StaticText); // a line of text, not a container
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

void ElidedLabel::setText(const QString& text)
{
    if (text == m_text)
        return;
    m_text = text;
    setAccessibleName(text);
    updateGeometry();
    update();
}

QString ElidedLabel::shownText() const
{
    // Line breaks in daemon data would make a second line; show them as spaces.
    QString line = m_text;
    line.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return fontMetrics().elidedText(line, Qt::ElideRight, width());
}

QSize ElidedLabel::sizeHint() const
{
    const QFontMetrics fm = fontMetrics();
    return {fm.horizontalAdvance(m_text), fm.height()};
}

QSize ElidedLabel::minimumSizeHint() const
{
    return {0, fontMetrics().height()};
}

void ElidedLabel::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(rect(), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, shownText());
}

} // namespace harkline::ui
