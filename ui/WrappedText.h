#pragma once

#include <QFont>
#include <QLabel>
#include <QTextLayout>

namespace harkline::ui {

// Plain text wrapped at word boundaries, where a word alone wider than the line is broken; line
// breaks in the text are kept. Laid out once per text, font and width, so a long text costs its
// layout once and a paint draws only the lines it meets.
class WrappedText
{
public:
    void setText(const QString& text);
    const QString& text() const { return m_text; }
    void setFont(const QFont& font);
    const QFont& font() const { return m_font; }
    void setAlignment(Qt::Alignment alignment);
    Qt::Alignment alignment() const { return m_alignment; }

    int height(int width) const;
    // The lines at `width`, as they break.
    QStringList lines(int width) const;
    // The width of the widest line when nothing wraps.
    int naturalWidth() const;
    // Draws the lines that meet `clip` (painter coordinates), the text's top left at `origin`.
    void draw(QPainter* painter, QPointF origin, int width, const QRectF& clip) const;

private:
    void layOut(int width) const;

    QString m_text;
    QFont m_font;
    Qt::Alignment m_alignment = Qt::AlignLeft;
    mutable QTextLayout m_layout;
    mutable int m_width = -1; // the width m_layout was laid out for; -1: none
    mutable int m_height = 0;
};

// A plain-text label that wraps as WrappedText does; a word-wrapped QLabel keeps an overlong word
// whole and cuts it off at the edge. Its text is set as for any label.
class WrappedLabel : public QLabel
{
    Q_OBJECT

public:
    explicit WrappedLabel(QWidget* parent = nullptr);

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    // Follows the label's text, font and alignment, which QLabel keeps.
    const WrappedText& wrapped() const;

    mutable WrappedText m_wrapped;
};

} // namespace harkline::ui
