#include "Access.h"

#include <QAccessibleObject>
#include <QAccessibleWidget>
#include <QAction>
#include <QMenu>
#include <QWidget>
#include <QWindow>

namespace harkline::ui::access {

namespace {

const char* const kRole = "harklineAccessibleRole";
const char* const kAnnouncer = "harklineAnnouncer";

Announcer* announcerOf(const QWidget* widget)
{
    return qobject_cast<Announcer*>(widget->property(kAnnouncer).value<QObject*>());
}

// A widget whose accessible children end with its announcer.
class HostInterface final : public QAccessibleWidget
{
public:
    HostInterface(QWidget* widget, QAccessible::Role role, Announcer* announcer)
        : QAccessibleWidget(widget, role), m_announcer(announcer)
    {}
    int childCount() const override { return QAccessibleWidget::childCount() + 1; }
    QAccessibleInterface* child(int index) const override
    {
        if (index == QAccessibleWidget::childCount())
            return QAccessible::queryAccessibleInterface(m_announcer.data());
        return QAccessibleWidget::child(index);
    }
    int indexOfChild(const QAccessibleInterface* child) const override
    {
        if (child && child->object() && child->object() == m_announcer)
            return QAccessibleWidget::childCount();
        return QAccessibleWidget::indexOfChild(child);
    }

private:
    QPointer<Announcer> m_announcer;
};

// The notification itself, and the label it holds: readers speak a notification's labels.
class SpokenInterface final : public QAccessibleObject
{
public:
    SpokenInterface(QObject* object, Announcer* announcer, bool isLine)
        : QAccessibleObject(object), m_announcer(announcer), m_isLine(isLine)
    {}
    QWindow* window() const override
    {
        const QWidget* host = m_announcer ? m_announcer->host() : nullptr;
        return host ? host->window()->windowHandle() : nullptr;
    }
    QAccessibleInterface* parent() const override
    {
        if (!m_announcer)
            return nullptr;
        return m_isLine ? QAccessible::queryAccessibleInterface(m_announcer.data())
                        : QAccessible::queryAccessibleInterface(m_announcer->host());
    }
    QAccessibleInterface* child(int index) const override
    {
        return !m_isLine && index == 0 && m_announcer
                   ? QAccessible::queryAccessibleInterface(m_announcer->line())
                   : nullptr;
    }
    int childCount() const override { return m_isLine ? 0 : 1; }
    int indexOfChild(const QAccessibleInterface* child) const override
    {
        return !m_isLine && m_announcer && child && child->object() == m_announcer->line() ? 0 : -1;
    }
    QString text(QAccessible::Text t) const override
    {
        return m_isLine && m_announcer && t == QAccessible::Name ? m_announcer->text() : QString();
    }
    QAccessible::Role role() const override
    {
        return m_isLine ? QAccessible::StaticText : QAccessible::Notification;
    }
    QAccessible::State state() const override
    {
        QAccessible::State s;
        s.invisible = !m_announcer || m_announcer->text().isEmpty();
        s.readOnly = m_isLine;
        return s;
    }
    QRect rect() const override { return m_announcer ? m_announcer->rect() : QRect(); }

private:
    QPointer<Announcer> m_announcer;
    bool m_isLine;
};

// A menu and its entries as readers need them: Qt's own entry says "checked" but never that it
// can be checked, so an unchecked "Open at Login" sounded like a plain command. Checkable entries
// are check boxes here; the menu counts them among its children like any other entry.
class MenuInterface final : public QAccessibleWidget
{
public:
    explicit MenuInterface(QMenu* menu) : QAccessibleWidget(menu, QAccessible::PopupMenu) {}

    QMenu* menu() const { return static_cast<QMenu*>(widget()); }
    int childCount() const override { return int(menu()->actions().size()); }
    QAccessibleInterface* child(int index) const override
    {
        const QList<QAction*> actions = menu()->actions();
        return index >= 0 && index < actions.size()
                   ? QAccessible::queryAccessibleInterface(actions.at(index))
                   : nullptr;
    }
    int indexOfChild(const QAccessibleInterface* child) const override
    {
        return child ? int(menu()->actions().indexOf(qobject_cast<QAction*>(child->object()))) : -1;
    }
    QAccessibleInterface* childAt(int x, int y) const override
    {
        QAction* action = menu()->actionAt(menu()->mapFromGlobal(QPoint(x, y)));
        return action ? QAccessible::queryAccessibleInterface(action) : nullptr;
    }
};

class MenuItemInterface final : public QAccessibleObject, public QAccessibleActionInterface
{
public:
    explicit MenuItemInterface(QAction* action) : QAccessibleObject(action) {}

    QAction* action() const { return static_cast<QAction*>(object()); }
    QMenu* menu() const
    {
        for (QObject* o : action()->associatedObjects())
            if (auto* m = qobject_cast<QMenu*>(o))
                return m;
        return nullptr;
    }
    void* interface_cast(QAccessible::InterfaceType type) override
    {
        return type == QAccessible::ActionInterface ? static_cast<QAccessibleActionInterface*>(this)
                                                    : nullptr;
    }
    QWindow* window() const override
    {
        const QMenu* m = menu();
        return m ? m->windowHandle() : nullptr;
    }
    QAccessibleInterface* parent() const override
    {
        return QAccessible::queryAccessibleInterface(menu());
    }
    QAccessibleInterface* child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }
    QAccessible::Role role() const override
    {
        return action()->isSeparator()   ? QAccessible::Separator
               : action()->isCheckable() ? QAccessible::CheckBox
                                         : QAccessible::MenuItem;
    }
    QString text(QAccessible::Text t) const override
    {
        return t == QAccessible::Name ? action()->text().remove(QLatin1Char('&')) : QString();
    }
    QAccessible::State state() const override
    {
        QAccessible::State s;
        const QMenu* m = menu();
        s.checkable = action()->isCheckable();
        s.checked = action()->isChecked();
        s.disabled = !action()->isEnabled();
        s.invisible = !m || !m->isVisible() || !action()->isVisible();
        s.focusable = !action()->isSeparator();
        s.focused = m && m->activeAction() == action();
        return s;
    }
    QRect rect() const override
    {
        const QMenu* m = menu();
        if (!m)
            return {};
        const QRect r = m->actionGeometry(action());
        return {m->mapToGlobal(r.topLeft()), r.size()};
    }
    QStringList actionNames() const override
    {
        if (action()->isSeparator())
            return {};
        return {action()->isCheckable() ? toggleAction() : pressAction()};
    }
    void doAction(const QString& name) override
    {
        if (actionNames().contains(name) && action()->isEnabled())
            action()->trigger();
    }
    QStringList keyBindingsForAction(const QString&) const override { return {}; }
};

QAccessibleInterface* interfaceFor(const QString&, QObject* object)
{
    if (!object)
        return nullptr;
    if (auto* action = qobject_cast<QAction*>(object))
        return new MenuItemInterface(action);
    if (auto* menu = qobject_cast<QMenu*>(object))
        return new MenuInterface(menu);
    if (auto* announcer = qobject_cast<Announcer*>(object))
        return new SpokenInterface(object, announcer, false);
    if (auto* announcer = qobject_cast<Announcer*>(object->parent());
        announcer && object == announcer->line())
        return new SpokenInterface(object, announcer, true);
    if (!object->isWidgetType())
        return nullptr;
    auto* widget = static_cast<QWidget*>(object);
    const QVariant role = widget->property(kRole);
    if (Announcer* announcer = announcerOf(widget))
        return new HostInterface(
            widget, role.isValid() ? QAccessible::Role(role.toInt()) : QAccessible::Client,
            announcer);
    if (role.isValid())
        return new QAccessibleWidget(widget, QAccessible::Role(role.toInt()));
    return nullptr;
}

void installFactory()
{
    static const bool installed = (QAccessible::installFactory(interfaceFor), true);
    (void)installed;
}

} // namespace

void setRole(QWidget* widget, QAccessible::Role role)
{
    installFactory();
    widget->setProperty(kRole, int(role));
}

void setName(QWidget* widget, const QString& name)
{
    if (widget->accessibleName() != name)
        widget->setAccessibleName(name);
}

void setDescription(QWidget* widget, const QString& description)
{
    if (widget->accessibleDescription() != description)
        widget->setAccessibleDescription(description);
}

void announce(QWidget* source, const QString& text)
{
    for (QWidget* w = source; w; w = w->parentWidget()) {
        if (Announcer* announcer = announcerOf(w)) {
            announcer->say(text, source);
            return;
        }
    }
}

Announcer::Announcer(QWidget* host) : QObject(host)
{
    installFactory();
    m_line.setParent(this);
    host->setProperty(kAnnouncer, QVariant::fromValue<QObject*>(this));
}

QWidget* Announcer::host() const
{
    return static_cast<QWidget*>(parent());
}

QRect Announcer::rect() const
{
    const QWidget* shown = m_source && m_source->isVisible() ? m_source.data() : host();
    return {shown->mapToGlobal(QPoint(0, 0)), shown->size()};
}

void Announcer::say(const QString& text, QWidget* source)
{
    // Nobody hears a closed panel; what happened then shows when it opens.
    if (text.isEmpty() || !host()->isVisible())
        return;
    ++m_count;
    m_source = source;
    if (text != m_text) {
        m_text = text;
        QAccessibleEvent named(&m_line, QAccessible::NameChanged);
        QAccessible::updateAccessibility(&named);
    }
    QAccessibleEvent shown(this, QAccessible::ObjectShow);
    QAccessible::updateAccessibility(&shown);
}

} // namespace harkline::ui::access
