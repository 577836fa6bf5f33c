#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <memory>

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
class TrayHostWatcher;

// The running companion: the model, the panel holding the menu, and the tray icon once a tray
// host is there (or the panel as a window where none comes).
class Companion : public QObject
{
    Q_OBJECT

public:
    explicit Companion(QObject* parent = nullptr);
    ~Companion() override;

    // Shows the panel: by the pointer under a tray, as a window without one.
    void openPanel();

    AppModel* model() const { return m_model.get(); }
    // Null until the panel first opens: the views, their fonts and text layout cost memory that
    // a companion sitting in the tray for weeks has no use for.
    PanelWindow* panel() const { return m_panel; }
    QSystemTrayIcon* trayIcon() const { return m_tray; }

    // A short summary of the state for the tray icon's tooltip.
    QString toolTip() const;

    // How long to wait for a tray host at start before showing the panel as a window.
    static constexpr int kTrayGraceMs = 3000;

private:
    void makeTrayIcon();
    void updateTrayIcon();
    static bool menuVisible();
    PanelWindow* ensurePanel();

    std::unique_ptr<AppModel> m_model;
    ui::MenuView* m_menu = nullptr;
    PanelWindow* m_panel = nullptr;
    bool m_panelAsWindow = false; // no tray host came: the panel opens as an ordinary window
    TrayHostWatcher* m_watcher = nullptr;
    QSystemTrayIcon* m_tray = nullptr;
    ui::ActionsMenu* m_trayMenu = nullptr;
    QString m_shownSymbol;
    QTimer m_grace;
};

} // namespace harkline::app
