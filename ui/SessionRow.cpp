#include "SessionRow.h"

#include "DisplayText.h"
#include "RelativeTime.h"
#include "WrappedText.h"

#include <QPainter>
#include <QPainterPath>

namespace harkline::ui {

namespace {

constexpr int kSymbolColumn = 16;
constexpr int kSymbolSize = 14;
constexpr int kSpacing = 8;
constexpr int kMinGap = 4;
constexpr int kBadgePadX = 6;
constexpr int kBadgePadY = 2;
constexpr int kLastTextGap = 2;
// More than any line of the panel can show, whatever the font: the rest would be elided anyway.
constexpr std::size_t kOneLineBytes = 2048;
const QString kSeparator = QStringLiteral(" · ");

// The start of a daemon text, cut at a character boundary, as one inert line.
QString oneLine(const std::string& utf8)
{
    std::size_t size = std::min(utf8.size(), kOneLineBytes);
    while (size < utf8.size() && size > 0 &&
           (static_cast<unsigned char>(utf8[size]) & 0xC0) == 0x80)
        --size;
    return inertText(std::string_view(utf8.data(), size), TextLines::One);
}

} // namespace

SessionRow::Look SessionRow::lookOf(const std::string& state)
{
    // The labels are shown as they are, like the rest of the row.
    if (state == "working")
        return {QStringLiteral("Working"), QStringLiteral("arrow.triangle.2.circlepath"),
                SystemColor::Blue};
    if (state == "waiting")
        return {QStringLiteral("Needs you"), QStringLiteral("exclamationmark.circle.fill"),
                SystemColor::Orange};
    if (state == "ended")
        return {QStringLiteral("Closed"), QStringLiteral("stop.circle"), SystemColor::Gray};
    return {QStringLiteral("Finished"), QStringLiteral("checkmark.circle.fill"),
            SystemColor::Green};
}

SessionRow::Metrics SessionRow::Metrics::current()
{
    Metrics m;
    m.title = looks::font(TextStyle::Callout, Weight::Medium);
    m.detail = looks::font(TextStyle::Caption);
    m.badge = looks::font(TextStyle::Caption2, Weight::Semibold);
    m.titleHeight = QFontMetrics(m.title).height();
    m.detailHeight = QFontMetrics(m.detail).height();
    m.badgeHeight = QFontMetrics(m.badge).height() + 2 * kBadgePadY;
    return m;
}

int SessionRow::Metrics::foldedHeight() const
{
    return height(0);
}

int SessionRow::Metrics::height(int textHeight) const
{
    int h = titleHeight + 1 + detailHeight;
    if (textHeight > 0)
        h += 1 + kLastTextGap + textHeight;
    return std::max(h, badgeHeight);
}

SessionRow::SessionRow(const ClaudeSession& session)
    : m_look(lookOf(session.state)),
      m_title(oneLine(session.title.empty() ? session.project : session.title)),
      m_project(isolated(oneLine(session.project))), m_listening(session.listening),
      m_queued(session.queued), m_lastActive(session.lastActive)
{}

QString SessionRow::detailText(DaemonTime now) const
{
    // Parts are never dropped for being empty: an empty project still leads the line.
    QString detail = m_project + kSeparator + relativeTimePhrase(m_lastActive, now);
    if (m_listening)
        detail += kSeparator + QStringLiteral("phone can reply");
    if (m_queued >= 1)
        detail += kSeparator + QString::number(m_queued) + QStringLiteral(" queued");
    return detail;
}

QString SessionRow::detailText() const
{
    return detailText(DaemonTime(std::chrono::system_clock::now()));
}

QString SessionRow::lastTextOf(const ClaudeSession& session)
{
    return inertText(session.lastText, TextLines::Many);
}

int SessionRow::badgeWidth(const Metrics& metrics) const
{
    return QFontMetrics(metrics.badge).horizontalAdvance(m_look.label) + 2 * kBadgePadX;
}

int SessionRow::textWidth(const Metrics& metrics, int rowWidth) const
{
    return std::max(1, rowWidth - badgeWidth(metrics) - kMinGap - kSymbolColumn - kSpacing);
}

void SessionRow::paint(QPainter& painter, const QRect& rect, const QRect& exposed,
                       const Metrics& metrics, const QPalette& palette,
                       const WrappedText* lastText) const
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor tint = looks::color(m_look.color, palette);

    // The symbol, centred on the title line.
    const int symbolTop = rect.top() + std::max(0, (metrics.titleHeight - kSymbolSize) / 2);
    looks::symbol(m_look.symbol, tint)
        .paint(&painter, QRect(rect.left() + (kSymbolColumn - kSymbolSize) / 2, symbolTop,
                               kSymbolSize, kSymbolSize));

    const int left = rect.left() + kSymbolColumn + kSpacing;
    const int width = textWidth(metrics, rect.width());
    int y = rect.top();
    const auto line = [&](const QFont& font, int height, SystemColor color, const QString& text) {
        painter.setFont(font);
        painter.setPen(looks::color(color, palette));
        painter.drawText(QRect(left, y, width, height),
                         Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                         QFontMetrics(font).elidedText(text, Qt::ElideRight, width));
        y += height + 1;
    };
    line(metrics.title, metrics.titleHeight, SystemColor::Primary, m_title);
    line(metrics.detail, metrics.detailHeight, SystemColor::Secondary, detailText());

    if (lastText) {
        painter.setFont(metrics.detail);
        painter.setPen(looks::color(SystemColor::Primary, palette));
        lastText->draw(&painter, QPointF(left, y + kLastTextGap), width, exposed & rect);
    }

    // The badge: a tinted capsule behind the state's label.
    const int badge = badgeWidth(metrics);
    const QRectF capsule(rect.right() + 1 - badge, rect.top(), badge, metrics.badgeHeight);
    QPainterPath path;
    path.addRoundedRect(capsule, capsule.height() / 2, capsule.height() / 2);
    QColor fill = tint;
    fill.setAlphaF(0.18);
    painter.fillPath(path, fill);
    painter.setFont(metrics.badge);
    painter.setPen(tint);
    painter.drawText(capsule, Qt::AlignCenter | Qt::TextSingleLine, m_look.label);
    painter.restore();
}

} // namespace harkline::ui
