#include "SessionsView.h"

#include "RowsById.h"

#include "Looks.h"
#include "SessionRow.h"

#include <QEvent>
#include <QLabel>

namespace harkline::ui {

namespace {
constexpr int kRowSpacing = 8;
}

SessionsView::SessionsView(QWidget* parent) : QWidget(parent)
{
    m_empty = new QLabel(
        tr("No Claude Code sessions yet. They appear after the next prompt or reply."), this);
    m_empty->setTextFormat(Qt::PlainText);
    m_empty->setWordWrap(true);
    looks::style(m_empty, TextStyle::Callout, SystemColor::Secondary);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
}

SessionRow* SessionsView::row(const std::string& id) const
{
    auto it = m_byId.find(id);
    return it == m_byId.end() ? nullptr : it->second;
}

void SessionsView::setSessions(const std::vector<ClaudeSession>& sessions)
{
    bool moved = sessions.size() != m_order.size();
    bool resized = false;
    const std::vector<SessionRow*> before = m_order;
    std::size_t index = 0;
    reuseRowsById(
        m_order, sessions, [](SessionRow* r) { return r->session().id; },
        [&](const ClaudeSession& session, SessionRow* r) {
            if (r) {
                resized |= r->setSession(session);
            } else {
                r = new SessionRow(this);
                r->setSession(session);
                connect(r, &SessionRow::clicked, this, [this, r] { toggle(r->session().id); });
                resized = true;
            }
            r->setExpanded(m_expanded && *m_expanded == session.id);
            // Compared before the unclaimed rows are deleted.
            if (!moved && before[index] != r)
                moved = true;
            ++index;
            return r;
        });

    m_byId.clear();
    m_byId.reserve(m_order.size());
    for (SessionRow* r : m_order)
        m_byId.emplace(r->session().id, r);
    m_empty->setVisible(m_order.empty());

    if (moved || resized) {
        relayout();
        updateGeometry();
    } else {
        // Nothing moved, but the times in the detail lines advance: draw again (Qt repaints only
        // the rows on screen).
        update();
    }
}

void SessionsView::toggle(const std::string& id)
{
    if (m_expanded && *m_expanded == id)
        m_expanded.reset();
    else
        m_expanded = id;
    for (SessionRow* r : m_order)
        r->setExpanded(m_expanded && *m_expanded == r->session().id);
    relayout();
    updateGeometry();
}

int SessionsView::heightForWidth(int width) const
{
    if (m_order.empty())
        return m_empty->heightForWidth(width);
    int height = 0;
    for (SessionRow* r : m_order)
        height += r->heightForWidth(width);
    return height + kRowSpacing * int(m_order.size() - 1);
}

QSize SessionsView::sizeHint() const
{
    const int width = 312;
    return {width, heightForWidth(width)};
}

QSize SessionsView::minimumSizeHint() const
{
    return {0, 0};
}

void SessionsView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    relayout();
}

bool SessionsView::event(QEvent* event)
{
    if (event->type() == QEvent::LayoutRequest)
        relayout();
    return QWidget::event(event);
}

void SessionsView::relayout()
{
    const int w = width();
    if (m_order.empty()) {
        m_empty->setGeometry(0, 0, w, m_empty->heightForWidth(w));
        return;
    }
    int y = 0;
    for (SessionRow* r : m_order) {
        const int h = r->heightForWidth(w);
        r->setGeometry(0, y, w, h);
        if (r->isHidden())
            r->show();
        y += h + kRowSpacing;
    }
}

} // namespace harkline::ui
