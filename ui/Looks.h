#pragma once

#include <QColor>
#include <QFont>
#include <QIcon>
#include <QPalette>
#include <QString>

class QBoxLayout;
class QLabel;
class QStyle;
class QWidget;

namespace harkline::ui {

// The text styles the menu uses, from the most prominent to the smallest.
enum class TextStyle { Body, Headline, Callout, Caption, Caption2 };
enum class Weight { Regular, Medium, Semibold };
// Named colours. Secondary is the dimmed foreground for supporting text; Primary the normal one.
enum class SystemColor { Primary, Secondary, Blue, Orange, Gray, Green, Red };

// The one place that turns styles, weights and colour names into fonts and colours of the
// current palette, so every view looks alike in light and dark themes.
namespace looks {

// The style's font, derived from the application font so the user's size setting carries over.
// Headline is semibold unless another weight is asked for.
QFont font(TextStyle style);
QFont font(TextStyle style, Weight weight);

bool isDark(const QPalette& palette);
QColor color(SystemColor name, const QPalette& palette);
QColor color(SystemColor name); // of the application palette

// Sets a label's font and text colour; keeps its other palette roles.
void style(QWidget* widget, TextStyle style, SystemColor color = SystemColor::Primary);
void style(QWidget* widget, TextStyle style, Weight weight, SystemColor color);

// True when an icon of that name is bundled with the program.
bool hasSymbol(const QString& name);

// A bundled symbol drawn in `tint` at whatever size it is asked for, never scaled from a bitmap.
// An unknown name gives a null icon.
QIcon symbol(const QString& name, const QColor& tint);

// A tray symbol for hosts that draw our pixels: the glyph in a light tone with a dark halo. The
// bar's colour is not ours to know; most bars are dark, where a light glyph reads as a solid
// shape (a dark one read as a thin outline at 16 px), and the halo keeps it apart from a light
// bar. Hosts that recolour symbolic icons get those instead.
QIcon traySymbol(const QString& name);

// Adds `icon` at `size` to `layout` as an ornament drawn by `host` itself: no child widget, so
// screen readers meet no image that means nothing.
void decorate(QWidget* host, QBoxLayout* layout, const QIcon& icon, const QSize& size);

// The colour of a focus indicator on `palette`'s window: its highlight, darkened or lightened
// until it stands at least 3:1 against the window and the buttons.
QColor focusColor(const QPalette& palette);
// WCAG's contrast ratio of two opaque colours, from 1 to 21.
qreal contrast(const QColor& a, const QColor& b);
// The style the panel draws with: `base` with focus indicators in focusColor().
QStyle* focusStyle(QStyle* base);

} // namespace looks
} // namespace harkline::ui
