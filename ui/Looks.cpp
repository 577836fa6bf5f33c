#include "Looks.h"

#include <QApplication>
#include <QBoxLayout>
#include <QEvent>
#include <QFile>
#include <QHash>
#include <QIconEngine>
#include <QPainter>
#include <QProxyStyle>
#include <QStyleOption>
#include <QSvgRenderer>
#include <QWidget>

#include <algorithm>
#include <cmath>
#include <memory>

// The symbols are compiled into this static library; its resources must be registered by hand.
static void registerSymbols()
{
    Q_INIT_RESOURCE(symbols);
}

namespace harkline::ui::looks {

namespace {

// Sizes relative to the body text, in the proportions of the desktop toolkit the menu was first
// drawn with (body 13, callout 12, caption 10, caption 2 a touch smaller).
qreal scaleOf(TextStyle style)
{
    switch (style) {
    case TextStyle::Body:
    case TextStyle::Headline:
        return 1.0;
    case TextStyle::Callout:
        return 0.93;
    case TextStyle::Caption:
        return 0.84;
    case TextStyle::Caption2:
        return 0.78;
    }
    return 1.0;
}

QFont::Weight qtWeight(Weight weight)
{
    switch (weight) {
    case Weight::Regular:
        return QFont::Normal;
    case Weight::Medium:
        return QFont::Medium;
    case Weight::Semibold:
        return QFont::DemiBold;
    }
    return QFont::Normal;
}

QColor blend(const QColor& front, const QColor& back, qreal amount)
{
    return QColor::fromRgbF(front.redF() * amount + back.redF() * (1 - amount),
                            front.greenF() * amount + back.greenF() * (1 - amount),
                            front.blueF() * amount + back.blueF() * (1 - amount));
}

// The SVG text of a symbol, read once from the resources.
const QByteArray& svgText(const QString& name)
{
    static QHash<QString, QByteArray> cache;
    static const bool registered = (registerSymbols(), true);
    (void)registered;
    auto it = cache.find(name);
    if (it == cache.end()) {
        QFile file(QStringLiteral(":/symbols/%1.svg").arg(name));
        it = cache.insert(name, file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
    }
    return *it;
}

// The files draw the glyph in black and mark the halo with #fffffe; both are swapped for the
// wanted colours before parsing.
QByteArray tinted(const QByteArray& svg, const QColor& tint, const QColor& halo)
{
    QByteArray text = svg;
    text.replace("#000000", tint.name(QColor::HexRgb).toLatin1());
    if (tint.alphaF() < 1.0)
        text.replace("<svg ", "<svg opacity=\"" + QByteArray::number(tint.alphaF()) + "\" ");
    text.replace("\"#fffffe\"", halo.isValid() ? "\"" + halo.name().toLatin1() + "\"" : "\"none\"");
    return text;
}

QIcon makeUncachedIcon(const QString& name, const QColor& tint, const QColor& halo);

class SymbolEngine final : public QIconEngine
{
public:
    explicit SymbolEngine(std::shared_ptr<QSvgRenderer> renderer) : m_renderer(std::move(renderer))
    {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override
    {
        painter->save();
        if (mode == QIcon::Disabled)
            painter->setOpacity(painter->opacity() * 0.4);
        m_renderer->render(painter, QRectF(rect));
        painter->restore();
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override
    {
        return scaledPixmap(size, mode, state, 1.0);
    }

    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state,
                         qreal scale) override
    {
        // A tool button asks before it has a size; a painter on a null pixmap would complain.
        QPixmap pixmap(size * scale);
        if (pixmap.isNull())
            return pixmap;
        pixmap.fill(Qt::transparent);
        {
            QPainter painter(&pixmap);
            painter.setRenderHint(QPainter::Antialiasing);
            paint(&painter, QRect(QPoint(), pixmap.size()), mode, state);
        }
        pixmap.setDevicePixelRatio(scale);
        return pixmap;
    }

    QIconEngine* clone() const override { return new SymbolEngine(m_renderer); }
    QString key() const override { return QStringLiteral("harkline-symbol"); }

private:
    std::shared_ptr<QSvgRenderer> m_renderer;
};

QIcon makeIcon(const QString& name, const QColor& tint, const QColor& halo)
{
    // Rows ask for their symbol at every drawing; parse each tint of a symbol once.
    static QHash<QString, QIcon> made;
    const QString key = name + QLatin1Char('|') + tint.name(QColor::HexArgb) + QLatin1Char('|') +
                        (halo.isValid() ? halo.name(QColor::HexArgb) : QString());
    if (auto it = made.constFind(key); it != made.cend())
        return *it;
    QIcon icon = makeUncachedIcon(name, tint, halo);
    if (made.size() > 256) // only a few tints exist; a theme switch must not grow this forever
        made.clear();
    made.insert(key, icon);
    return icon;
}

QIcon makeUncachedIcon(const QString& name, const QColor& tint, const QColor& halo)
{
    const QByteArray& svg = svgText(name);
    if (svg.isEmpty())
        return {};
    auto renderer = std::make_shared<QSvgRenderer>(tinted(svg, tint, halo));
    if (!renderer->isValid())
        return {};
    return QIcon(new SymbolEngine(std::move(renderer)));
}

} // namespace

QFont font(TextStyle style)
{
    return font(style, style == TextStyle::Headline ? Weight::Semibold : Weight::Regular);
}

QFont font(TextStyle style, Weight weight)
{
    QFont f = QApplication::font();
    // Never below 10 pt for body text: small desktop defaults would make captions unreadable.
    const qreal body = std::max<qreal>(f.pointSizeF() > 0 ? f.pointSizeF() : 10.0, 10.0);
    f.setPointSizeF(std::max<qreal>(body * scaleOf(style), 7.0));
    f.setWeight(qtWeight(weight));
    return f;
}

bool isDark(const QPalette& palette)
{
    return palette.color(QPalette::Window).lightnessF() < 0.5;
}

QColor color(SystemColor name, const QPalette& palette)
{
    const bool dark = isDark(palette);
    switch (name) {
    case SystemColor::Primary:
        return palette.color(QPalette::WindowText);
    case SystemColor::Secondary:
        // An opaque mix rather than a translucent colour keeps text crisp on any background.
        return blend(palette.color(QPalette::WindowText), palette.color(QPalette::Window), 0.6);
    case SystemColor::Blue:
        return dark ? QColor(0x0a, 0x84, 0xff) : QColor(0x00, 0x7a, 0xff);
    case SystemColor::Orange:
        return dark ? QColor(0xff, 0x9f, 0x0a) : QColor(0xf0, 0x8a, 0x00);
    case SystemColor::Gray:
        return dark ? QColor(0x98, 0x98, 0x9d) : QColor(0x8e, 0x8e, 0x93);
    case SystemColor::Green:
        return dark ? QColor(0x30, 0xd1, 0x58) : QColor(0x28, 0xb8, 0x44);
    case SystemColor::Red:
        return dark ? QColor(0xff, 0x45, 0x3a) : QColor(0xff, 0x3b, 0x30);
    }
    return palette.color(QPalette::WindowText);
}

QColor color(SystemColor name)
{
    return color(name, QApplication::palette());
}

void style(QWidget* widget, TextStyle textStyle, SystemColor colorName)
{
    style(widget, textStyle, textStyle == TextStyle::Headline ? Weight::Semibold : Weight::Regular,
          colorName);
}

void style(QWidget* widget, TextStyle textStyle, Weight weight, SystemColor colorName)
{
    widget->setFont(font(textStyle, weight));
    QPalette palette = widget->palette();
    const QColor c = color(colorName, palette);
    palette.setColor(QPalette::WindowText, c);
    palette.setColor(QPalette::Text, c);
    widget->setPalette(palette);
}

bool hasSymbol(const QString& name)
{
    return !svgText(name).isEmpty();
}

QIcon symbol(const QString& name, const QColor& tint)
{
    return makeIcon(name, tint, QColor());
}

QIcon traySymbol(const QString& name)
{
    return makeIcon(name, QColor(0xf4, 0xf4, 0xf4), QColor(0x26, 0x26, 0x26));
}

namespace {

class Ornament final : public QObject
{
public:
    Ornament(QWidget* host, QSpacerItem* slot, const QPixmap& pixmap)
        : QObject(host), m_host(host), m_slot(slot), m_pixmap(pixmap)
    {
        host->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::Paint) {
            const QRect slot = m_slot->geometry();
            const QSize size = m_slot->sizeHint();
            QPainter painter(m_host);
            painter.drawPixmap(
                QRect(QPoint(slot.x(), slot.y() + (slot.height() - size.height()) / 2), size),
                m_pixmap);
        }
        return false;
    }

private:
    QWidget* m_host;
    QSpacerItem* m_slot;
    QPixmap m_pixmap;
};

qreal luminance(const QColor& color)
{
    const auto channel = [](qreal c) {
        return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    const QColor rgb = color.toRgb();
    return 0.2126 * channel(rgb.redF()) + 0.7152 * channel(rgb.greenF()) +
           0.0722 * channel(rgb.blueF());
}

// Solid rings, two pixels wide: where the base style puts its focus frame (tool buttons, check
// boxes), and around push buttons, which Fusion marks only with a faint outline.
class FocusStyle final : public QProxyStyle
{
public:
    using QProxyStyle::QProxyStyle;

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override
    {
        if (element == PE_FrameFocusRect)
            ring(painter, option->rect, option->palette);
        else
            QProxyStyle::drawPrimitive(element, option, painter, widget);
    }

    void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override
    {
        QProxyStyle::drawControl(element, option, painter, widget);
        if (element == CE_PushButton && (option->state & State_HasFocus))
            ring(painter, option->rect, option->palette);
    }

private:
    static void ring(QPainter* painter, const QRect& rect, const QPalette& palette)
    {
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing, false);
        painter->setPen(QPen(focusColor(palette), 2));
        painter->setBrush(Qt::NoBrush);
        painter->drawRect(QRectF(rect).adjusted(1, 1, -1, -1));
        painter->restore();
    }
};

} // namespace

void decorate(QWidget* host, QBoxLayout* layout, const QIcon& icon, const QSize& size)
{
    auto* slot =
        new QSpacerItem(size.width(), size.height(), QSizePolicy::Fixed, QSizePolicy::Fixed);
    layout->addItem(slot);
    // A layout puts no spacing next to a spacer as it does between widgets: keep the same gap
    // between the icon and what follows.
    int gap = layout->spacing();
    if (gap < 0)
        gap = host->style()->pixelMetric(QStyle::PM_LayoutHorizontalSpacing, nullptr, host);
    layout->addSpacing(std::max(gap, 0));
    new Ornament(host, slot, icon.pixmap(size, host->devicePixelRatioF()));
}

qreal contrast(const QColor& a, const QColor& b)
{
    const qreal la = luminance(a);
    const qreal lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

QColor focusColor(const QPalette& palette)
{
    const QColor window = palette.color(QPalette::Window);
    const QColor button = palette.color(QPalette::Button);
    QColor ring = palette.color(QPalette::Highlight).toHsl();
    // Away from the window's lightness, a step at a time, keeping the highlight's hue.
    const qreal step = isDark(palette) ? 0.04 : -0.04;
    for (int i = 0; i < 25 && std::min(contrast(ring, window), contrast(ring, button)) < 3.0; ++i)
        ring = QColor::fromHslF(ring.hslHueF(), ring.hslSaturationF(),
                                std::clamp(ring.lightnessF() + step, 0.0, 1.0));
    return ring.toRgb();
}

QStyle* focusStyle(QStyle* base)
{
    return new FocusStyle(base);
}

} // namespace harkline::ui::looks
