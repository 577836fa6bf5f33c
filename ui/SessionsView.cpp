#include "SessionsView.h"

#include "Looks.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QKeyEvent>
#include <QPainter>
#include <QPointer>
#include <QScrollBar>
#include <QStyle>

#include <algorithm>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace harkline::ui {

namespace {

constexpr int kRowSpacing = 8;
constexpr std::size_t kCachedRows = 512;

// A session row for screen readers: a list item that unfolds, with its title as name and the
// rest of what the row shows as description.
class SessionItem final : public QAccessibleInterface, public QAccessibleActionInterface
{
public:
    SessionItem(SessionsView* view, int index) : m_view(view), m_index(index) {}

    SessionsView* view() const { return m_view; }
    int index() const { return m_index; }

    bool isValid() const override { return m_view && m_index < m_view->count(); }
    QObject* object() const override { return nullptr; }
    QWindow* window() const override { return m_view ? m_view->window()->windowHandle() : nullptr; }
    QAccessibleInterface* parent() const override
    {
        return m_view ? QAccessible::queryAccessibleInterface(m_view.data()) : nullptr;
    }
    QAccessibleInterface* child(int) const override { return nullptr; }
    QAccessibleInterface* childAt(int, int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }
    QAccessible::Role role() const override { return QAccessible::ListItem; }

    QString text(QAccessible::Text t) const override
    {
        if (!isValid())
            return {};
        const SessionRow row = m_view->row(m_index);
        if (t == QAccessible::Name)
            return row.titleText();
        if (t != QAccessible::Description)
            return {};
        QString description = row.badgeText() + QStringLiteral(", ") + row.detailText();
        if (m_view->showsLastText(m_index))
            description += QStringLiteral(". ") + m_view->shownLastText(m_index);
        return description;
    }
    void setText(QAccessible::Text, const QString&) override {}

    QRect rect() const override
    {
        if (!isValid())
            return {};
        const QRect r = m_view->rowRect(m_index);
        return {m_view->viewport()->mapToGlobal(r.topLeft()), r.size()};
    }

    QAccessible::State state() const override
    {
        QAccessible::State s;
        if (!isValid()) {
            s.invalid = true;
            return s;
        }
        s.focusable = true;
        s.focused = m_view->hasFocus() && m_view->currentRow() == m_index;
        s.expandable = true;
        // Unfolded only when there is a last text to show: otherwise it looks folded.
        s.expanded = m_view->showsLastText(m_index);
        s.collapsed = !s.expanded;
        s.offscreen = !m_view->isVisible() ||
                      !m_view->viewport()->rect().intersects(m_view->rowRect(m_index));
        return s;
    }

    void* interface_cast(QAccessible::InterfaceType type) override
    {
        return type == QAccessible::ActionInterface ? static_cast<QAccessibleActionInterface*>(this)
                                                    : nullptr;
    }
    QStringList actionNames() const override { return {toggleAction()}; }
    void doAction(const QString& name) override
    {
        if (name == toggleAction() && isValid()) {
            m_view->setCurrentRow(m_index);
            m_view->toggle(m_view->session(m_index).id);
        }
    }
    QStringList keyBindingsForAction(const QString&) const override
    {
        return {QStringLiteral("Space")};
    }

private:
    QPointer<SessionsView> m_view;
    int m_index;
};

// The list for screen readers: its children are the rows, made when asked for and dropped when
// the list changes (they stand for positions).
class SessionsAccessible final : public QAccessibleWidget
{
public:
    explicit SessionsAccessible(SessionsView* view) : QAccessibleWidget(view, QAccessible::List) {}
    ~SessionsAccessible() override { dropRows(); }

    SessionsView* view() const { return static_cast<SessionsView*>(widget()); }

    int childCount() const override { return view()->count(); }
    QAccessibleInterface* child(int index) const override
    {
        if (index < 0 || index >= childCount())
            return nullptr;
        if (auto it = m_rows.find(index); it != m_rows.end())
            return QAccessible::accessibleInterface(it->second);
        auto* row = new SessionItem(view(), index);
        m_rows.emplace(index, QAccessible::registerAccessibleInterface(row));
        return row;
    }
    int indexOfChild(const QAccessibleInterface* child) const override
    {
        const auto* row = dynamic_cast<const SessionItem*>(child);
        return row && row->view() == view() && row->isValid() ? row->index() : -1;
    }
    QAccessibleInterface* childAt(int x, int y) const override
    {
        const int index = view()->rowAt(view()->viewport()->mapFromGlobal(QPoint(x, y)));
        return index >= 0 ? child(index) : nullptr;
    }
    QAccessibleInterface* focusChild() const override
    {
        if (view()->hasFocus() && view()->currentRow() >= 0)
            return child(view()->currentRow());
        return QAccessibleWidget::focusChild();
    }
    QString text(QAccessible::Text t) const override
    {
        if (t == QAccessible::Description && view()->count() == 0)
            return view()->shownEmptyText();
        return QAccessibleWidget::text(t);
    }

    void dropRows()
    {
        for (const auto& entry : m_rows)
            QAccessible::deleteAccessibleInterface(entry.second);
        m_rows.clear();
    }

private:
    mutable std::unordered_map<int, QAccessible::Id> m_rows;
};

QAccessibleInterface* accessibleFactory(const QString& className, QObject* object)
{
    if (object && object->isWidgetType() &&
        className == QLatin1String(SessionsView::staticMetaObject.className()))
        return new SessionsAccessible(static_cast<SessionsView*>(object));
    return nullptr;
}

SessionsAccessible* accessibleOf(SessionsView* view)
{
    if (!QAccessible::isActive())
        return nullptr;
    return dynamic_cast<SessionsAccessible*>(QAccessible::queryAccessibleInterface(view));
}

} // namespace

SessionsView::SessionsView(QWidget* parent)
    : QAbstractScrollArea(parent), m_metrics(SessionRow::Metrics::current())
{
    static const bool factory = (QAccessible::installFactory(accessibleFactory), true);
    (void)factory;

    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setFocusPolicy(Qt::StrongFocus);
    viewport()->setAutoFillBackground(false);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);

    m_empty.setText(tr("No Claude Code sessions yet. They appear after the next prompt or reply."));
    m_empty.setFont(looks::font(TextStyle::Callout));
    m_lastText.setFont(m_metrics.detail);
    setAccessibleName(tr("Sessions"));
}

SessionsView::~SessionsView() = default;

void SessionsView::setSessions(const std::vector<ClaudeSession>& sessions)
{
    if (sessions == m_sessions) {
        // Nothing changed but the time, which each paint phrases anew.
        viewport()->update();
        return;
    }
    m_sessions = sessions; // reuses the strings' storage where it can
    // After a large list, give the memory back: to the heap, and from the heap to the system
    // (glibc keeps freed memory in its arenas, the worker threads' included).
    const bool shrunk = m_sessions.capacity() > 4 * m_sessions.size() + 1024;
    if (shrunk)
        m_sessions.shrink_to_fit();
    m_rows.clear();
    findMarkedRows();
    relayout();
    if (SessionsAccessible* accessible = accessibleOf(this)) {
        accessible->dropRows();
        QAccessibleEvent event(this, QAccessible::ObjectReorder);
        QAccessible::updateAccessibility(&event);
    }
#ifdef __GLIBC__
    if (shrunk)
        malloc_trim(0);
#endif
}

void SessionsView::findMarkedRows()
{
    int expanded = -1;
    int current = -1;
    for (std::size_t i = 0; i < m_sessions.size(); ++i) {
        const std::string& id = m_sessions[i].id;
        if (expanded < 0 && m_expanded && id == *m_expanded)
            expanded = int(i);
        if (current < 0 && m_currentId && id == *m_currentId)
            current = int(i);
    }
    m_expandedIndex =
        expanded >= 0 && !m_sessions[std::size_t(expanded)].lastText.empty() ? expanded : -1;
    // The keyboard stays on its session; when that one left, on the row now in its place.
    m_current = current >= 0 ? current : std::min(m_current, count() - 1);
    m_currentId = m_current >= 0 ? std::optional(session(m_current).id) : std::nullopt;

    // The unfolded text is laid out again only when it is another text (compared as the daemon
    // sent it, which is cheap even for a long one); folded, its layout goes.
    static const std::string none;
    const std::string& source = m_expandedIndex >= 0 ? session(m_expandedIndex).lastText : none;
    if (source != m_lastTextSource) {
        m_lastTextSource = source;
        m_lastText.setText(m_expandedIndex >= 0 ? SessionRow::lastTextOf(session(m_expandedIndex))
                                                : QString());
    }
}

SessionRow SessionsView::row(int index) const
{
    return SessionRow(session(index));
}

const SessionRow& SessionsView::cachedRow(int index) const
{
    auto it = m_rows.find(index);
    if (it == m_rows.end()) {
        if (m_rows.size() >= kCachedRows)
            m_rows.clear();
        it = m_rows.try_emplace(index, session(index)).first;
    }
    return it->second;
}

void SessionsView::toggle(const std::string& id)
{
    const int before = m_expandedIndex;
    if (m_expanded && *m_expanded == id)
        m_expanded.reset();
    else
        m_expanded = id;
    findMarkedRows();
    relayout();
    if (SessionsAccessible* accessible = accessibleOf(this)) {
        QAccessible::State changed;
        changed.expanded = true;
        changed.collapsed = true;
        for (const int index : {before, m_expandedIndex})
            if (QAccessibleInterface* row = index >= 0 ? accessible->child(index) : nullptr) {
                QAccessibleStateChangeEvent event(row, changed);
                QAccessible::updateAccessibility(&event);
            }
    }
}

bool SessionsView::showsLastText(int index) const
{
    return index >= 0 && index == m_expandedIndex;
}

QString SessionsView::shownLastText(int index) const
{
    return showsLastText(index) ? m_lastText.text() : QString();
}

QString SessionsView::shownEmptyText() const
{
    return m_sessions.empty() ? m_empty.text() : QString();
}

void SessionsView::setCurrentRow(int index)
{
    if (index < 0 || index >= count())
        return;
    const bool moved = index != m_current;
    m_current = index;
    m_currentId = session(index).id;
    ensureVisible(index);
    if (moved) {
        viewport()->update();
        accessibleFocus();
    }
}

// --- geometry: every folded row has one height, the unfolded one its own ---

int SessionsView::unfoldedExtra(int width) const
{
    if (m_expandedIndex < 0)
        return 0;
    // Wrapped as if the scroll bar were there: the text keeps one width whether or not the list
    // scrolls, so it is never laid out twice to decide that.
    const int scrollBar = style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, this);
    const int textWidth = cachedRow(m_expandedIndex).textWidth(m_metrics, width - scrollBar);
    return m_metrics.height(m_lastText.height(textWidth)) - m_metrics.foldedHeight();
}

int SessionsView::contentHeight(int width) const
{
    if (m_sessions.empty())
        return m_empty.height(width);
    const int n = count();
    return n * m_metrics.foldedHeight() + (n - 1) * kRowSpacing + unfoldedExtra(width);
}

int SessionsView::rowTop(int index) const
{
    const int top = index * (m_metrics.foldedHeight() + kRowSpacing);
    return m_expandedIndex >= 0 && index > m_expandedIndex ? top + unfoldedExtra(width()) : top;
}

int SessionsView::rowHeight(int index) const
{
    return m_metrics.foldedHeight() + (index == m_expandedIndex ? unfoldedExtra(width()) : 0);
}

int SessionsView::indexAtContentY(int y) const
{
    // The row at y, or the one whose spacing y is in; clamped to the list.
    const int pitch = m_metrics.foldedHeight() + kRowSpacing;
    int index = std::max(y, 0) / pitch;
    const int e = m_expandedIndex;
    if (e >= 0 && y >= rowTop(e)) {
        const int next = rowTop(e) + rowHeight(e) + kRowSpacing;
        index = y < next ? e : e + 1 + (y - next) / pitch;
    }
    return std::clamp(index, 0, std::max(count() - 1, 0));
}

QRect SessionsView::rowRect(int index) const
{
    return {0, rowTop(index) - verticalScrollBar()->value(), viewport()->width(), rowHeight(index)};
}

int SessionsView::rowAt(const QPoint& point) const
{
    if (m_sessions.empty() || !viewport()->rect().contains(point))
        return -1;
    const int index = indexAtContentY(point.y() + verticalScrollBar()->value());
    return rowRect(index).contains(point) ? index : -1;
}

int SessionsView::heightForWidth(int width) const
{
    return std::min(contentHeight(width), m_maxHeight);
}

QSize SessionsView::sizeHint() const
{
    const int width = this->width() > 0 ? this->width() : 312;
    return {width, heightForWidth(width)};
}

QSize SessionsView::minimumSizeHint() const
{
    return {0, std::min(sizeHint().height(), minimumListHeight())};
}

int SessionsView::minimumListHeight() const
{
    return m_sessions.empty() ? m_empty.height(std::max(width(), 1)) : m_metrics.foldedHeight();
}

void SessionsView::setMaximumListHeight(int height)
{
    if (height == m_maxHeight)
        return;
    m_maxHeight = height;
    updateGeometry();
}

void SessionsView::relayout()
{
    updateGeometry();
    QScrollBar* bar = verticalScrollBar();
    const int page = viewport()->height();
    bar->setPageStep(page);
    bar->setSingleStep(std::max(1, (m_metrics.foldedHeight() + kRowSpacing) / 3));
    bar->setRange(0, std::max(0, contentHeight(width()) - page));
    viewport()->update();
}

void SessionsView::ensureVisible(int index)
{
    QScrollBar* bar = verticalScrollBar();
    const int top = rowTop(index);
    const int bottom = top + rowHeight(index);
    int value = bar->value();
    if (bottom > value + viewport()->height())
        value = bottom - viewport()->height();
    if (top < value) // a row taller than the view shows its top
        value = top;
    bar->setValue(value);
}

// --- drawing and input ---

void SessionsView::paintEvent(QPaintEvent* event)
{
    QPainter painter(viewport());
    const QRect exposed = event->rect();
    const QPalette& pal = palette();
    const int offset = verticalScrollBar()->value();
    if (m_sessions.empty()) {
        painter.setPen(looks::color(SystemColor::Secondary, pal));
        m_empty.draw(&painter, QPointF(0, -offset), viewport()->width(), exposed);
        return;
    }
    const bool focused = hasFocus();
    for (int i = indexAtContentY(offset + exposed.top()); i < count(); ++i) {
        const QRect rect = rowRect(i);
        if (rect.top() > exposed.bottom())
            break;
        cachedRow(i).paint(painter, rect, exposed, m_metrics, pal,
                           i == m_expandedIndex ? &m_lastText : nullptr);
        if (focused && i == m_current) {
            painter.save();
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setPen(QPen(looks::focusColor(pal), 2));
            painter.setBrush(Qt::NoBrush);
            painter.drawRoundedRect(QRectF(rect).adjusted(1, -3, -1, 3), 4, 4);
            painter.restore();
        }
    }
}

void SessionsView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        m_pressed = rowAt(event->position().toPoint());
    QAbstractScrollArea::mousePressEvent(event);
}

void SessionsView::mouseReleaseEvent(QMouseEvent* event)
{
    // Anywhere in the row counts, the gaps between texts and badge included.
    if (event->button() == Qt::LeftButton) {
        const int index = rowAt(event->position().toPoint());
        if (index >= 0 && index == m_pressed) {
            setCurrentRow(index);
            toggle(session(index).id);
            ensureVisible(index);
        }
        m_pressed = -1;
    }
    QAbstractScrollArea::mouseReleaseEvent(event);
}

void SessionsView::keyPressEvent(QKeyEvent* event)
{
    const int n = count();
    if (n == 0) {
        QAbstractScrollArea::keyPressEvent(event);
        return;
    }
    const int from = std::max(m_current, 0);
    const int page = std::max(1, viewport()->height() / (m_metrics.foldedHeight() + kRowSpacing));
    int to = from;
    switch (event->key()) {
    case Qt::Key_Up:
        to = m_current < 0 ? 0 : from - 1;
        break;
    case Qt::Key_Down:
        to = m_current < 0 ? 0 : from + 1;
        break;
    case Qt::Key_Home:
        to = 0;
        break;
    case Qt::Key_End:
        to = n - 1;
        break;
    case Qt::Key_PageUp:
        to = from - page;
        break;
    case Qt::Key_PageDown:
        to = from + page;
        break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Space:
        if (!event->isAutoRepeat() && m_current >= 0) {
            toggle(session(m_current).id);
            ensureVisible(m_current);
        }
        event->accept();
        return;
    default:
        QAbstractScrollArea::keyPressEvent(event);
        return;
    }
    setCurrentRow(std::clamp(to, 0, n - 1));
    event->accept();
}

void SessionsView::focusInEvent(QFocusEvent* event)
{
    QAbstractScrollArea::focusInEvent(event);
    if (m_current < 0 && count() > 0) {
        m_current = indexAtContentY(verticalScrollBar()->value());
        m_currentId = session(m_current).id;
    }
    if (m_current >= 0)
        ensureVisible(m_current);
    viewport()->update();
    // After the list's own focus event, which Qt sends once this returns: readers then stay on
    // the row, not on the list around it.
    QMetaObject::invokeMethod(this, &SessionsView::accessibleFocus, Qt::QueuedConnection);
}

void SessionsView::focusOutEvent(QFocusEvent* event)
{
    QAbstractScrollArea::focusOutEvent(event);
    viewport()->update();
}

void SessionsView::resizeEvent(QResizeEvent* event)
{
    QAbstractScrollArea::resizeEvent(event);
    relayout();
}

void SessionsView::changeEvent(QEvent* event)
{
    QAbstractScrollArea::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::ApplicationFontChange) {
        m_metrics = SessionRow::Metrics::current();
        m_lastText.setFont(m_metrics.detail);
        m_empty.setFont(looks::font(TextStyle::Callout));
        m_rows.clear();
        relayout();
    }
}

void SessionsView::accessibleFocus()
{
    if (!hasFocus() || m_current < 0)
        return;
    if (SessionsAccessible* accessible = accessibleOf(this))
        if (QAccessibleInterface* row = accessible->child(m_current)) {
            QAccessibleEvent event(row, QAccessible::Focus);
            QAccessible::updateAccessibility(&event);
        }
}

} // namespace harkline::ui
