#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QHash>
#include <QIcon>
#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QTimer>

class QAction;
class QMenu;

namespace harkline::app {

// One image of an icon as the tray protocol carries it: ARGB32 in network byte order.
struct SniPixmap
{
    int width = 0;
    int height = 0;
    QByteArray argb;
};
using SniPixmaps = QList<SniPixmap>;

struct SniToolTip
{
    QString iconName;
    SniPixmaps pixmaps;
    QString title;
    QString body; // hosts may read it as markup
};

// A menu entry and its children as com.canonical.dbusmenu lays them out.
struct DBusMenuNode
{
    int id = 0;
    QVariantMap properties;
    QList<DBusMenuNode> children;
};
struct DBusMenuItemProperties
{
    int id = 0;
    QVariantMap properties;
};
using DBusMenuItemPropertiesList = QList<DBusMenuItemProperties>;
struct DBusMenuRemovedProperties
{
    int id = 0;
    QStringList names;
};
using DBusMenuRemovedPropertiesList = QList<DBusMenuRemovedProperties>;
struct DBusMenuEvent
{
    int id = 0;
    QString eventId;
    QDBusVariant data;
    uint timestamp = 0;
};

// A QMenu served as com.canonical.dbusmenu, so the tray host draws it in its own style.
class DBusMenuExporter : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
    Q_PROPERTY(uint Version READ version)
    Q_PROPERTY(QString TextDirection READ textDirection)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(QStringList IconThemePath READ iconThemePath)

public:
    explicit DBusMenuExporter(QMenu* menu, QObject* parent = nullptr);

    uint version() const { return 3; }
    QString textDirection() const;
    QString status() const { return QStringLiteral("normal"); }
    QStringList iconThemePath() const { return {}; }

    // The entry's properties as the host reads them; empty for an unknown id.
    QVariantMap properties(int id) const;
    DBusMenuNode layout(int id, int depth) const;

public slots:
    // Types spelt out in full: Qt D-Bus finds them by the name moc records.
    uint GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                   harkline::app::DBusMenuNode& layout);
    QList<harkline::app::DBusMenuItemProperties>
    GetGroupProperties(const QList<int>& ids, const QStringList& propertyNames);
    QDBusVariant GetProperty(int id, const QString& name);
    void Event(int id, const QString& eventId, const QDBusVariant& data, uint timestamp);
    bool AboutToShow(int id);
    // Xfce's tray sends its clicks in groups.
    QList<int> EventGroup(const QList<harkline::app::DBusMenuEvent>& events);
    QList<int> AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors);

signals:
    void LayoutUpdated(uint revision, int parent);
    void ItemsPropertiesUpdated(const QList<harkline::app::DBusMenuItemProperties>& updated,
                                const QList<harkline::app::DBusMenuRemovedProperties>& removed);
    void ItemActivationRequested(int id, uint timestamp);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    int idOf(QAction* action);
    QAction* actionOf(int id) const;
    void track(QMenu* menu);

    QPointer<QMenu> m_menu;
    QHash<QAction*, int> m_ids;
    int m_nextId = 1;
    uint m_revision = 1;
    QTimer m_changed;
};

// The tray icon, served as an org.kde.StatusNotifierItem of our own rather than through
// QSystemTrayIcon: that drops the position Activate carries (the only reliable anchor for the
// panel on hosts that report no icon geometry), and has no way to say NeedsAttention or to
// describe the icon for screen readers.
class StatusNotifierItem : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category)
    Q_PROPERTY(QString Id READ id)
    Q_PROPERTY(QString Title READ title)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(int WindowId READ windowId)
    Q_PROPERTY(QString IconThemePath READ iconThemePath)
    Q_PROPERTY(QString IconName READ iconName)
    Q_PROPERTY(harkline::app::SniPixmaps IconPixmap READ iconPixmap)
    Q_PROPERTY(QString OverlayIconName READ empty)
    Q_PROPERTY(harkline::app::SniPixmaps OverlayIconPixmap READ noPixmaps)
    Q_PROPERTY(QString AttentionIconName READ iconName)
    Q_PROPERTY(harkline::app::SniPixmaps AttentionIconPixmap READ iconPixmap)
    Q_PROPERTY(QString AttentionMovieName READ empty)
    Q_PROPERTY(harkline::app::SniToolTip ToolTip READ toolTip)
    Q_PROPERTY(QString IconAccessibleDesc READ iconDescription)
    Q_PROPERTY(QString AttentionAccessibleDesc READ iconDescription)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu)
    Q_PROPERTY(QDBusObjectPath Menu READ menuPath)

public:
    static constexpr const char* kPath = "/StatusNotifierItem";
    static constexpr const char* kMenuPath = "/MenuBar";

    StatusNotifierItem(QMenu* menu, QDBusConnection bus, QObject* parent = nullptr);
    ~StatusNotifierItem() override;

    // Registers with the desktop's watcher, now and whenever a watcher (re)appears. False when
    // the bus refused our objects or name.
    bool publish();
    QString serviceName() const { return m_service; }

    // The icon: `name` from the icon theme for hosts that draw by name (and recolour symbolic
    // icons), `image` for the others.
    void setIcon(const QString& name, const QIcon& image);
    void setToolTip(const QString& title, const QString& body);
    void setNeedsAttention(bool attention);
    void setIconDescription(const QString& text);
    // Where hosts look up IconName before the icon theme; empty for the theme alone.
    void setIconThemePath(const QString& path);

    QString category() const { return QStringLiteral("ApplicationStatus"); }
    QString id() const;
    QString title() const { return m_title; }
    QString status() const;
    int windowId() const { return 0; }
    QString iconThemePath() const { return m_themePath; }
    QString iconName() const { return m_iconName; }
    SniPixmaps iconPixmap() const { return m_pixmaps; }
    QString empty() const { return {}; }
    SniPixmaps noPixmaps() const { return {}; }
    SniToolTip toolTip() const;
    QString iconDescription() const { return m_iconDescription; }
    bool itemIsMenu() const { return false; }
    QDBusObjectPath menuPath() const { return QDBusObjectPath(kMenuPath); }

    static SniPixmaps pixmapsOf(const QIcon& icon);

public slots:
    Q_SCRIPTABLE void Activate(int x, int y);
    Q_SCRIPTABLE void SecondaryActivate(int x, int y);
    Q_SCRIPTABLE void ContextMenu(int x, int y);
    Q_SCRIPTABLE void Scroll(int delta, const QString& orientation);

signals:
    // The host's click, at the screen position it reports (hosts that know none send 0, 0).
    void activated(QPoint position);

    Q_SCRIPTABLE void NewTitle();
    Q_SCRIPTABLE void NewIcon();
    Q_SCRIPTABLE void NewAttentionIcon();
    Q_SCRIPTABLE void NewOverlayIcon();
    Q_SCRIPTABLE void NewToolTip();
    Q_SCRIPTABLE void NewStatus(const QString& status);
    Q_SCRIPTABLE void NewIconThemePath(const QString& path);

private:
    void registerWithWatcher();

    QDBusConnection m_bus;
    QPointer<QMenu> m_menu;
    DBusMenuExporter* m_exporter;
    QDBusServiceWatcher m_watcher;
    QString m_service;
    QString m_title = QStringLiteral("harkline");
    QString m_iconName;
    QString m_themePath;
    SniPixmaps m_pixmaps;
    QString m_tipTitle;
    QString m_tipBody;
    QString m_iconDescription;
    bool m_attention = false;
};

} // namespace harkline::app

Q_DECLARE_METATYPE(harkline::app::SniPixmap)
Q_DECLARE_METATYPE(harkline::app::SniToolTip)
Q_DECLARE_METATYPE(harkline::app::DBusMenuNode)
Q_DECLARE_METATYPE(harkline::app::DBusMenuItemProperties)
Q_DECLARE_METATYPE(harkline::app::DBusMenuRemovedProperties)
Q_DECLARE_METATYPE(harkline::app::DBusMenuEvent)
