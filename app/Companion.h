#pragma once

#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QRect>
#include <QString>
#include <QTimer>

#include <memory>
#include <optional>

class QSystemTrayIcon;
class QMenu;

namespace harkline {
class AppModel;
}
namespace harkline::ui {
class ActionsMenu;
class MenuView;
} // namespace harkline::ui

namespace harkline::app {

class PanelWindow;
class StatusNotifierItem;
class TrayHostWatcher;

// What the companion knows of the desktop it runs on, for placing the panel.
struct DesktopKind
{
    bool waylandSession = false;        // even when Qt itself talks X11 to XWayland
    bool shellReportsPositions = false; // the tray host is the shell, which knows where it is

    static DesktopKind current();
};

// Where the tray icon is, for a click that the tray host reported at `reported` (0, 0 when it
// gave none), or nothing when that cannot be known. `pointer` is asked only where it is true:
// under XWayland it is where an X window last saw the pointer, not where it is.
std::optional<QRect> iconAnchor(QPoint reported, const DesktopKind& desktop, QPoint (*pointer)());

// The running companion: the model, the panel holding the menu, and the tray icon once a tray
// host is there (or the panel as a window where none comes).
class Companion : public QObject
{
    Q_OBJECT

public:
    explicit Companion(QObject* parent = nullptr);
    ~Companion() override;

    // Shows the panel: by the icon under a tray, as a window without one.
    void openPanel();

    AppModel* model() const { return m_model.get(); }
    // Null until the panel first opens: the views, their fonts and text layout cost memory that
    // a companion sitting in the tray for weeks has no use for.
    PanelWindow* panel() const { return m_panel; }
    // The tray icon, once a host is there: ours over D-Bus, or Qt's on an XEmbed tray.
    StatusNotifierItem* statusNotifierItem() const { return m_item; }
    QSystemTrayIcon* trayIcon() const { return m_tray; }

    // The state in a line or two, for the tray icon's tooltip: plain text.
    QString toolTip() const;
    // What the icon shows, for screen readers.
    QString iconDescription() const;

    // How long to wait for a tray host at start before showing the panel as a window.
    static constexpr int kTrayGraceMs = 3000;

private:
    void makeTrayIcon();
    void makeTrayMenu();
    void iconClicked(QPoint reported);
    void updateTrayIcon();
    static bool menuVisible();
    PanelWindow* ensurePanel();

    std::unique_ptr<AppModel> m_model;
    ui::MenuView* m_menu = nullptr;
    PanelWindow* m_panel = nullptr;
    bool m_panelAsWindow = false; // no tray host came: the panel opens as an ordinary window
    TrayHostWatcher* m_watcher = nullptr;
    StatusNotifierItem* m_item = nullptr;
    QSystemTrayIcon* m_tray = nullptr;
    ui::ActionsMenu* m_trayMenu = nullptr;
    DesktopKind m_desktop;
    std::optional<QRect> m_lastAnchor;
    QString m_shownSymbol;
    QTimer m_grace;
};

} // namespace harkline::app
