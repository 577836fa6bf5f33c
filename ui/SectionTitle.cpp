#include "SectionTitle.h"

#include "Access.h"
#include "Looks.h"

#include <QEvent>

namespace harkline::ui {

SectionTitle::SectionTitle(const QString& text, QWidget* parent) : QLabel(parent)
{
    access::setRole(this, QAccessible::Heading);
    setTextFormat(Qt::PlainText);
    setTitle(text);
    looks::style(this, TextStyle::Caption2, Weight::Semibold, SystemColor::Secondary);
}

void SectionTitle::setTitle(const QString& text)
{
    m_title = text;
    // Named first: a label without a name of its own announces each new text as a new name.
    access::setName(this, text);
    // Full case mapping, independent of the locale ("ß" becomes "SS").
    setText(text.toUpper());
}

void SectionTitle::changeEvent(QEvent* event)
{
    QLabel::changeEvent(event);
    if (event->type() == QEvent::ApplicationPaletteChange)
        looks::style(this, TextStyle::Caption2, Weight::Semibold, SystemColor::Secondary);
}

} // namespace harkline::ui
