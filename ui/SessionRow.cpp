#include "SessionRow.h"

#include "RelativeTime.h"

#include <QAccessible>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QStyleOptionFocusRect>
#include <QStylePainter>

namespace harkline::ui {

namespace {

constexpr int kSymbolColumn = 16;
constexpr int kSymbolSize = 14;
constexpr int kSpacing = 8;
constexpr int kMinGap = 4;
constexpr int kBadgePadX = 6;
constexpr int kBadgePadY = 2;
constexpr int kLastTextGap = 2;
const QString kSeparator = QStringLiteral(" · ");

QString oneLine(QString text)
{
    text.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return text;
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

SessionRow::SessionRow(QWidget* parent)
    : QWidget(parent), m_look(lookOf({})),
      m_titleFont(looks::font(TextStyle::Callout, Weight::Medium)),
      m_detailFont(looks::font(TextStyle::Caption)),
      m_badgeFont(looks::font(TextStyle::Caption2, Weight::Semibold))
{
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    setAttribute(Qt::WA_OpaquePaintEvent, false);
    updateAccessibleText();
}

bool SessionRow::setSession(const ClaudeSession& session)
{
    if (session == m_session)
        return false;
    const bool heightMayChange = m_expanded && (session.lastText != m_session.lastText);
    m_session = session;
    m_look = lookOf(session.state);
    updateAccessibleText();
    if (heightMayChange)
        updateGeometry();
    update();
    return true;
}

void SessionRow::setExpanded(bool on)
{
    if (on == m_expanded)
        return;
    m_expanded = on;
    updateAccessibleText();
    if (!m_session.lastText.empty())
        updateGeometry();
    update();
}

QString SessionRow::titleText() const
{
    return QString::fromStdString(m_session.title.empty() ? m_session.project : m_session.title);
}

QString SessionRow::detailText() const
{
    // Parts are never dropped for being empty: an empty project still leads the line.
    QString detail = QString::fromStdString(m_session.project) + kSeparator +
                     relativeTimePhrase(m_session.lastActive);
    if (m_session.listening)
        detail += kSeparator + QStringLiteral("phone can reply");
    if (m_session.queued >= 1)
        detail += kSeparator + QString::number(m_session.queued) + QStringLiteral(" queued");
    return detail;
}

QString SessionRow::shownLastText() const
{
    return m_expanded ? QString::fromStdString(m_session.lastText) : QString();
}

QSize SessionRow::badgeSize() const
{
    const QFontMetrics fm(m_badgeFont);
    return {fm.horizontalAdvance(m_look.label) + 2 * kBadgePadX, fm.height() + 2 * kBadgePadY};
}

QRect SessionRow::textColumn(int width) const
{
    const int left = kSymbolColumn + kSpacing;
    const int right = width - badgeSize().width() - kMinGap;
    return QRect(left, 0, std::max(0, right - left), 0);
}

int SessionRow::heightForWidth(int width) const
{
    const QFontMetrics title(m_titleFont);
    const QFontMetrics detail(m_detailFont);
    int height = title.height() + 1 + detail.height();
    const QString last = shownLastText();
    if (!last.isEmpty()) {
        const QRect column = textColumn(width);
        height += 1 + kLastTextGap +
                  detail
                      .boundingRect(QRect(0, 0, std::max(1, column.width()), 1 << 20),
                                    Qt::TextWordWrap | Qt::TextWrapAnywhere, last)
                      .height();
    }
    return std::max(height, badgeSize().height());
}

QSize SessionRow::sizeHint() const
{
    const int width = 300;
    return {width, heightForWidth(width)};
}

void SessionRow::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette& pal = palette();
    const QColor tint = looks::color(m_look.color, pal);
    const QFontMetrics titleMetrics(m_titleFont);
    const QFontMetrics detailMetrics(m_detailFont);

    // The symbol, centred on the title line.
    const int symbolTop = (titleMetrics.height() - kSymbolSize) / 2;
    looks::symbol(m_look.symbol, tint)
        .paint(&painter, QRect((kSymbolColumn - kSymbolSize) / 2, std::max(0, symbolTop),
                               kSymbolSize, kSymbolSize));

    const QRect column = textColumn(width());
    int y = 0;
    painter.setFont(m_titleFont);
    painter.setPen(looks::color(SystemColor::Primary, pal));
    painter.drawText(QRect(column.left(), y, column.width(), titleMetrics.height()),
                     Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                     titleMetrics.elidedText(oneLine(titleText()), Qt::ElideRight, column.width()));
    y += titleMetrics.height() + 1;

    painter.setFont(m_detailFont);
    painter.setPen(looks::color(SystemColor::Secondary, pal));
    painter.drawText(
        QRect(column.left(), y, column.width(), detailMetrics.height()),
        Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
        detailMetrics.elidedText(oneLine(detailText()), Qt::ElideRight, column.width()));
    y += detailMetrics.height() + 1;

    const QString last = shownLastText();
    if (!last.isEmpty()) {
        y += kLastTextGap;
        painter.setPen(looks::color(SystemColor::Primary, pal));
        painter.drawText(QRect(column.left(), y, column.width(), height() - y),
                         Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap | Qt::TextWrapAnywhere,
                         last);
    }

    // The badge: a tinted capsule behind the state's label.
    const QSize badge = badgeSize();
    const QRectF capsule(width() - badge.width(), 0, badge.width(), badge.height());
    QPainterPath path;
    path.addRoundedRect(capsule, capsule.height() / 2, capsule.height() / 2);
    QColor fill = tint;
    fill.setAlphaF(0.18);
    painter.fillPath(path, fill);
    painter.setFont(m_badgeFont);
    painter.setPen(tint);
    painter.drawText(capsule, Qt::AlignCenter | Qt::TextSingleLine, m_look.label);

    if (hasFocus()) {
        QStyleOptionFocusRect option;
        option.initFrom(this);
        option.rect = rect();
        style()->drawPrimitive(QStyle::PE_FrameFocusRect, &option, &painter, this);
    }
}

void SessionRow::mouseReleaseEvent(QMouseEvent* event)
{
    // Anywhere in the row counts, the gaps between texts and badge included.
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()))
        Q_EMIT clicked();
}

void SessionRow::keyPressEvent(QKeyEvent* event)
{
    // Space, as for any toggle; Return stays free for the panel's default button.
    if (event->key() == Qt::Key_Space && !event->isAutoRepeat()) {
        Q_EMIT clicked();
        return;
    }
    QWidget::keyPressEvent(event);
}

void SessionRow::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ApplicationFontChange) {
        m_titleFont = looks::font(TextStyle::Callout, Weight::Medium);
        m_detailFont = looks::font(TextStyle::Caption);
        m_badgeFont = looks::font(TextStyle::Caption2, Weight::Semibold);
        updateGeometry();
    }
}

void SessionRow::updateAccessibleText()
{
    setAccessibleName(titleText());
    // The description costs a time phrase per row; only a screen reader needs it, and it is
    // refreshed with every reload while one is running.
    if (!QAccessible::isActive())
        return;
    QString description = m_look.label + QStringLiteral(", ") + oneLine(detailText());
    if (!shownLastText().isEmpty())
        description += QStringLiteral(". ") + shownLastText();
    setAccessibleDescription(description);
}

} // namespace harkline::ui
