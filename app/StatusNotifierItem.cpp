#include "StatusNotifierItem.h"

#include <QAction>
#include <QActionEvent>
#include <QActionGroup>
#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QGuiApplication>
#include <QMenu>
#include <QtEndian>

namespace harkline::app {

QDBusArgument& operator<<(QDBusArgument& arg, const SniPixmap& pixmap)
{
    arg.beginStructure();
    arg << pixmap.width << pixmap.height << pixmap.argb;
    arg.endStructure();
    return arg;
}
const QDBusArgument& operator>>(const QDBusArgument& arg, SniPixmap& pixmap)
{
    arg.beginStructure();
    arg >> pixmap.width >> pixmap.height >> pixmap.argb;
    arg.endStructure();
    return arg;
}
QDBusArgument& operator<<(QDBusArgument& arg, const SniToolTip& tip)
{
    arg.beginStructure();
    arg << tip.iconName << tip.pixmaps << tip.title << tip.body;
    arg.endStructure();
    return arg;
}
const QDBusArgument& operator>>(const QDBusArgument& arg, SniToolTip& tip)
{
    arg.beginStructure();
    arg >> tip.iconName >> tip.pixmaps >> tip.title >> tip.body;
    arg.endStructure();
    return arg;
}
QDBusArgument& operator<<(QDBusArgument& arg, const DBusMenuNode& node)
{
    arg.beginStructure();
    arg << node.id << node.properties;
    arg.beginArray(qMetaTypeId<QDBusVariant>());
    for (const DBusMenuNode& child : node.children)
        arg << QDBusVariant(QVariant::fromValue(child));
    arg.endArray();
    arg.endStructure();
    return arg;
}
const QDBusArgument& operator>>(const QDBusArgument& arg, DBusMenuNode& node)
{
    arg.beginStructure();
    arg >> node.id >> node.properties;
    arg.beginArray();
    node.children.clear();
    while (!arg.atEnd()) {
        QDBusVariant child;
        arg >> child;
        node.children << qdbus_cast<DBusMenuNode>(child.variant());
    }
    arg.endArray();
    arg.endStructure();
    return arg;
}
QDBusArgument& operator<<(QDBusArgument& arg, const DBusMenuItemProperties& item)
{
    arg.beginStructure();
    arg << item.id << item.properties;
    arg.endStructure();
    return arg;
}
const QDBusArgument& operator>>(const QDBusArgument& arg, DBusMenuItemProperties& item)
{
    arg.beginStructure();
    arg >> item.id >> item.properties;
    arg.endStructure();
    return arg;
}
QDBusArgument& operator<<(QDBusArgument& arg, const DBusMenuRemovedProperties& item)
{
    arg.beginStructure();
    arg << item.id << item.names;
    arg.endStructure();
    return arg;
}
const QDBusArgument& operator>>(const QDBusArgument& arg, DBusMenuRemovedProperties& item)
{
    arg.beginStructure();
    arg >> item.id >> item.names;
    arg.endStructure();
    return arg;
}

QDBusArgument& operator<<(QDBusArgument& arg, const DBusMenuEvent& event)
{
    arg.beginStructure();
    arg << event.id << event.eventId << event.data << event.timestamp;
    arg.endStructure();
    return arg;
}
const QDBusArgument& operator>>(const QDBusArgument& arg, DBusMenuEvent& event)
{
    arg.beginStructure();
    arg >> event.id >> event.eventId >> event.data >> event.timestamp;
    arg.endStructure();
    return arg;
}

namespace {

void registerTypes()
{
    static const bool done = [] {
        qDBusRegisterMetaType<SniPixmap>();
        qDBusRegisterMetaType<SniPixmaps>();
        qDBusRegisterMetaType<SniToolTip>();
        qDBusRegisterMetaType<DBusMenuNode>();
        qDBusRegisterMetaType<DBusMenuItemProperties>();
        qDBusRegisterMetaType<DBusMenuItemPropertiesList>();
        qDBusRegisterMetaType<DBusMenuRemovedProperties>();
        qDBusRegisterMetaType<DBusMenuRemovedPropertiesList>();
        qDBusRegisterMetaType<DBusMenuEvent>();
        qDBusRegisterMetaType<QList<DBusMenuEvent>>();
        return true;
    }();
    (void)done;
}

// A Qt mnemonic ("&Quit", "R&&D") in dbusmenu's spelling ("_Quit", "R&D"), underscores doubled.
QString dbusMenuLabel(const QString& text)
{
    QString label;
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == u'_')
            label += QStringLiteral("__");
        else if (c == u'&' && i + 1 < text.size())
            label += text.at(++i) == u'&' ? QStringLiteral("&") : u'_' + QString(text.at(i));
        else
            label += c;
    }
    return label;
}

constexpr const char* kWatcherService = "org.kde.StatusNotifierWatcher";

} // namespace

// --- the menu ---

DBusMenuExporter::DBusMenuExporter(QMenu* menu, QObject* parent) : QObject(parent), m_menu(menu)
{
    registerTypes();
    // Several actions change together (the model's enabled rules): tell the host once.
    m_changed.setSingleShot(true);
    m_changed.setInterval(0);
    connect(&m_changed, &QTimer::timeout, this, [this] { Q_EMIT LayoutUpdated(++m_revision, 0); });
    track(menu);
}

void DBusMenuExporter::track(QMenu* menu)
{
    menu->installEventFilter(this);
    for (QAction* action : menu->actions()) {
        idOf(action);
        if (action->menu())
            track(action->menu());
    }
}

bool DBusMenuExporter::eventFilter(QObject* watched, QEvent* event)
{
    switch (event->type()) {
    case QEvent::ActionAdded:
    case QEvent::ActionRemoved:
    case QEvent::ActionChanged:
        if (event->type() == QEvent::ActionAdded)
            if (QMenu* sub = static_cast<QActionEvent*>(event)->action()->menu())
                track(sub);
        m_changed.start();
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

QString DBusMenuExporter::textDirection() const
{
    return QGuiApplication::layoutDirection() == Qt::RightToLeft ? QStringLiteral("rtl")
                                                                 : QStringLiteral("ltr");
}

int DBusMenuExporter::idOf(QAction* action)
{
    auto it = m_ids.find(action);
    if (it == m_ids.end()) {
        it = m_ids.insert(action, m_nextId++);
        connect(action, &QObject::destroyed, this, [this, action] { m_ids.remove(action); });
    }
    return *it;
}

QAction* DBusMenuExporter::actionOf(int id) const
{
    return m_ids.key(id, nullptr);
}

QVariantMap DBusMenuExporter::properties(int id) const
{
    QVariantMap props;
    if (id == 0) {
        props.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
        return props;
    }
    const QAction* action = actionOf(id);
    if (!action)
        return props;
    if (action->isSeparator()) {
        props.insert(QStringLiteral("type"), QStringLiteral("separator"));
    } else {
        props.insert(QStringLiteral("label"), dbusMenuLabel(action->text()));
        if (action->menu())
            props.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
        if (action->isCheckable()) {
            props.insert(QStringLiteral("toggle-type"),
                         action->actionGroup() && action->actionGroup()->isExclusive()
                             ? QStringLiteral("radio")
                             : QStringLiteral("checkmark"));
            props.insert(QStringLiteral("toggle-state"), action->isChecked() ? 1 : 0);
        }
    }
    props.insert(QStringLiteral("enabled"), action->isEnabled());
    props.insert(QStringLiteral("visible"), action->isVisible());
    return props;
}

DBusMenuNode DBusMenuExporter::layout(int id, int depth) const
{
    DBusMenuNode node;
    node.id = id;
    node.properties = properties(id);
    const QMenu* menu = id == 0 ? m_menu.data() : nullptr;
    if (const QAction* action = actionOf(id))
        menu = action->menu();
    if (!menu || depth == 0)
        return node;
    for (QAction* action : menu->actions())
        node.children << layout(m_ids.value(action), depth < 0 ? -1 : depth - 1);
    return node;
}

uint DBusMenuExporter::GetLayout(int parentId, int recursionDepth, const QStringList&,
                                 DBusMenuNode& result)
{
    if (m_menu) // actions added since the last look get their ids now
        track(m_menu);
    result = layout(parentId, recursionDepth);
    return m_revision;
}

QList<DBusMenuItemProperties> DBusMenuExporter::GetGroupProperties(const QList<int>& ids,
                                                                   const QStringList&)
{
    DBusMenuItemPropertiesList list;
    for (int id : ids)
        list << DBusMenuItemProperties{id, properties(id)};
    return list;
}

QDBusVariant DBusMenuExporter::GetProperty(int id, const QString& name)
{
    return QDBusVariant(properties(id).value(name));
}

void DBusMenuExporter::Event(int id, const QString& eventId, const QDBusVariant&, uint)
{
    if (eventId == QLatin1String("opened") && id == 0 && m_menu) {
        Q_EMIT m_menu->aboutToShow();
        return;
    }
    if (eventId != QLatin1String("clicked"))
        return;
    // After the reply: an action may open a window or quit, and the host waits for the answer.
    if (QAction* action = actionOf(id); action && action->isEnabled())
        QMetaObject::invokeMethod(action, &QAction::trigger, Qt::QueuedConnection);
}

bool DBusMenuExporter::AboutToShow(int id)
{
    if (id == 0 && m_menu) {
        const uint before = m_revision;
        Q_EMIT m_menu->aboutToShow();
        return m_changed.isActive() || m_revision != before;
    }
    return false;
}

QList<int> DBusMenuExporter::EventGroup(const QList<DBusMenuEvent>& events)
{
    QList<int> unknown;
    for (const DBusMenuEvent& event : events) {
        if (event.id != 0 && !actionOf(event.id))
            unknown << event.id;
        else
            Event(event.id, event.eventId, event.data, event.timestamp);
    }
    return unknown;
}

QList<int> DBusMenuExporter::AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors)
{
    QList<int> updates;
    for (int id : ids) {
        if (id != 0 && !actionOf(id))
            idErrors << id;
        else if (AboutToShow(id))
            updates << id;
    }
    return updates;
}

// --- the item ---

StatusNotifierItem::StatusNotifierItem(QMenu* menu, QDBusConnection bus, QObject* parent)
    : QObject(parent), m_bus(std::move(bus)), m_menu(menu),
      m_exporter(new DBusMenuExporter(menu, this))
{
    registerTypes();
    static int instances = 0;
    m_service = QStringLiteral("org.kde.StatusNotifierItem-%1-%2")
                    .arg(QCoreApplication::applicationPid())
                    .arg(++instances);
    m_watcher.setConnection(m_bus);
    m_watcher.addWatchedService(QLatin1String(kWatcherService));
    m_watcher.setWatchMode(QDBusServiceWatcher::WatchForRegistration);
    // A tray host that restarts (a panel crash, a shell reload) forgets every item.
    connect(&m_watcher, &QDBusServiceWatcher::serviceRegistered, this,
            &StatusNotifierItem::registerWithWatcher);
}

StatusNotifierItem::~StatusNotifierItem()
{
    m_bus.unregisterService(m_service);
    m_bus.unregisterObject(QLatin1String(kPath));
    m_bus.unregisterObject(QLatin1String(kMenuPath));
}

bool StatusNotifierItem::publish()
{
    const bool ok = m_bus.registerObject(QLatin1String(kPath), this,
                                         QDBusConnection::ExportAllProperties |
                                             QDBusConnection::ExportScriptableSlots |
                                             QDBusConnection::ExportScriptableSignals) &&
                    m_bus.registerObject(QLatin1String(kMenuPath), m_exporter,
                                         QDBusConnection::ExportAllProperties |
                                             QDBusConnection::ExportAllSlots |
                                             QDBusConnection::ExportAllSignals) &&
                    m_bus.registerService(m_service);
    if (ok)
        registerWithWatcher();
    return ok;
}

void StatusNotifierItem::registerWithWatcher()
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        QLatin1String(kWatcherService), QStringLiteral("/StatusNotifierWatcher"),
        QLatin1String(kWatcherService), QStringLiteral("RegisterStatusNotifierItem"));
    call << m_service;
    // Asynchronous: a watcher that hangs must not freeze the companion.
    m_bus.asyncCall(call, 5000);
}

QString StatusNotifierItem::id() const
{
    return QCoreApplication::applicationName();
}

QString StatusNotifierItem::status() const
{
    return m_attention ? QStringLiteral("NeedsAttention") : QStringLiteral("Active");
}

SniToolTip StatusNotifierItem::toolTip() const
{
    return {QString(), {}, m_tipTitle, m_tipBody};
}

SniPixmaps StatusNotifierItem::pixmapsOf(const QIcon& icon)
{
    SniPixmaps pixmaps;
    for (int size : {16, 22, 24, 32, 48, 64}) {
        const QImage image =
            icon.pixmap(QSize(size, size)).toImage().convertToFormat(QImage::Format_ARGB32);
        if (image.isNull())
            continue;
        SniPixmap pixmap{image.width(), image.height(), {}};
        pixmap.argb.resize(image.width() * image.height() * 4);
        auto* out = reinterpret_cast<quint32*>(pixmap.argb.data());
        for (int y = 0; y < image.height(); ++y) {
            const auto* line = reinterpret_cast<const quint32*>(image.constScanLine(y));
            for (int x = 0; x < image.width(); ++x)
                *out++ = qToBigEndian(line[x]);
        }
        pixmaps << pixmap;
    }
    return pixmaps;
}

void StatusNotifierItem::setIcon(const QString& name, const QIcon& image)
{
    m_iconName = name;
    m_pixmaps = pixmapsOf(image);
    Q_EMIT NewIcon();
    Q_EMIT NewAttentionIcon();
}

void StatusNotifierItem::setToolTip(const QString& title, const QString& body)
{
    if (title == m_tipTitle && body == m_tipBody)
        return;
    m_tipTitle = title;
    m_tipBody = body;
    Q_EMIT NewToolTip();
}

void StatusNotifierItem::setNeedsAttention(bool attention)
{
    if (attention == m_attention)
        return;
    m_attention = attention;
    Q_EMIT NewStatus(status());
}

void StatusNotifierItem::setIconDescription(const QString& text)
{
    m_iconDescription = text; // read with the icon, which changes with it
}

void StatusNotifierItem::setIconThemePath(const QString& path)
{
    if (path == m_themePath)
        return;
    m_themePath = path;
    Q_EMIT NewIconThemePath(path);
}

void StatusNotifierItem::Activate(int x, int y)
{
    Q_EMIT activated(QPoint(x, y));
}

void StatusNotifierItem::SecondaryActivate(int x, int y)
{
    // A middle click: GNOME's tray sends it for the click that its menu does not take.
    Q_EMIT activated(QPoint(x, y));
}

void StatusNotifierItem::ContextMenu(int x, int y)
{
    // Hosts that cannot draw the D-Bus menu ask us to show it.
    if (m_menu)
        m_menu->popup(QPoint(x, y));
}

void StatusNotifierItem::Scroll(int, const QString&)
{}

} // namespace harkline::app
