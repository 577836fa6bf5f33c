#include "WrappedText.h"

#include <QPaintEvent>
#include <QPainter>

#include <cmath>

namespace harkline::ui {

void WrappedText::setText(const QString& text)
{
    if (text == m_text)
        return;
    m_text = text;
    // A text layout breaks lines only at the Unicode line separator.
    QString laidOut = text;
    laidOut.replace(QLatin1Char('\n'), QChar::LineSeparator);
    m_layout.setText(laidOut);
    m_width = -1;
}

void WrappedText::setFont(const QFont& font)
{
    if (font == m_font)
        return;
    m_font = font;
    m_width = -1;
}

void WrappedText::setAlignment(Qt::Alignment alignment)
{
    if (alignment == m_alignment)
        return;
    m_alignment = alignment;
    m_width = -1;
}

void WrappedText::layOut(int width) const
{
    if (width == m_width)
        return;
    m_width = width;
    m_height = 0;
    if (m_text.isEmpty()) {
        m_layout.clearLayout();
        return;
    }
    QTextOption option(m_alignment & Qt::AlignHorizontal_Mask);
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    m_layout.setTextOption(option);
    m_layout.setFont(m_font);
    m_layout.setCacheEnabled(true);
    m_layout.beginLayout();
    qreal y = 0;
    for (QTextLine line = m_layout.createLine(); line.isValid(); line = m_layout.createLine()) {
        line.setLineWidth(width);
        line.setPosition(QPointF(0, y));
        y += line.height();
    }
    m_layout.endLayout();
    m_height = int(std::ceil(y));
}

int WrappedText::height(int width) const
{
    layOut(std::max(width, 1));
    return m_height;
}

QStringList WrappedText::lines(int width) const
{
    layOut(std::max(width, 1));
    QStringList lines;
    for (int i = 0; i < m_layout.lineCount(); ++i) {
        const QTextLine line = m_layout.lineAt(i);
        lines << m_text.mid(line.textStart(), line.textLength());
    }
    return lines;
}

int WrappedText::naturalWidth() const
{
    const QFontMetrics metrics(m_font);
    int widest = 0;
    for (const QString& line : m_text.split(QLatin1Char('\n')))
        widest = std::max(widest, metrics.horizontalAdvance(line));
    return widest;
}

void WrappedText::draw(QPainter* painter, QPointF origin, int width, const QRectF& clip) const
{
    layOut(std::max(width, 1));
    m_layout.draw(painter, origin, {}, clip);
}

WrappedLabel::WrappedLabel(QWidget* parent) : QLabel(parent)
{
    setTextFormat(Qt::PlainText);
}

const WrappedText& WrappedLabel::wrapped() const
{
    m_wrapped.setText(text());
    m_wrapped.setFont(font());
    m_wrapped.setAlignment(alignment());
    return m_wrapped;
}

int WrappedLabel::heightForWidth(int width) const
{
    const QMargins m = contentsMargins();
    return wrapped().height(width - m.left() - m.right()) + m.top() + m.bottom();
}

QSize WrappedLabel::sizeHint() const
{
    // As wide as the text on one line, up to a comfortable paragraph; the layout decides.
    const int width = std::min(wrapped().naturalWidth(), 60 * fontMetrics().averageCharWidth()) + 1;
    return {width, heightForWidth(width)};
}

QSize WrappedLabel::minimumSizeHint() const
{
    // Never the reason a panel grows wider: any width will do, the text wraps to it.
    const int width = std::min(wrapped().naturalWidth(), 4 * fontMetrics().averageCharWidth());
    return {width, text().isEmpty() ? 0 : fontMetrics().height()};
}

void WrappedLabel::paintEvent(QPaintEvent* event)
{
    QPainter painter(this);
    painter.setPen(palette().color(foregroundRole()));
    const QRect area = contentsRect();
    wrapped().draw(&painter, area.topLeft(), area.width(), event->rect());
}

} // namespace harkline::ui
