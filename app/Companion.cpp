#include "Companion.h"

#include "ActionsMenu.h"
#include "AppModel.h"
#include "DisplayText.h"
#include "Looks.h"
#include "MenuView.h"
#include "PanelWindow.h"
#include "StatusNotifierItem.h"
#include "TrayHostWatcher.h"
#include "WindowVisibility.h"

#include <QApplication>
#include <QCursor>
#include <QDBusConnection>
#include <QDir>
#include <QSystemTrayIcon>

namespace harkline::app {

namespace {

QString themeName(const QString& symbol)
{
    return QStringLiteral(HARKLINE_APP_ID "-") + QString(symbol).replace('.', '-');
}

QPoint pointerPosition()
{
    return QCursor::pos();
}

} // namespace

DesktopKind DesktopKind::current()
{
    DesktopKind kind;
    kind.waylandSession = qEnvironmentVariable("XDG_SESSION_TYPE") == QLatin1String("wayland") ||
                          qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
    // On Wayland a client has no global coordinates; a tray host that is itself a client (waybar
    // sends the click's position inside its icon) cannot know where it is. GNOME Shell is the
    // compositor and Plasma places its own panels, so their positions are the screen's.
    const QStringList desktops = qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(u':');
    kind.shellReportsPositions = !kind.waylandSession ||
                                 desktops.contains(QLatin1String("KDE"), Qt::CaseInsensitive) ||
                                 desktops.contains(QLatin1String("GNOME"), Qt::CaseInsensitive);
    return kind;
}

std::optional<QRect> iconAnchor(QPoint reported, const DesktopKind& desktop, QPoint (*pointer)())
{
    if (!reported.isNull() && desktop.shellReportsPositions)
        return QRect(reported, QSize(1, 1));
    if (!desktop.waylandSession)
        return QRect(pointer(), QSize(1, 1));
    return std::nullopt;
}

bool Companion::menuVisible()
{
    std::vector<WindowInfo> windows;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        // Tooltips come and go with the pointer; they are not the user opening the menu.
        if (widget->windowType() == Qt::ToolTip)
            continue;
        windows.push_back(
            {widget->isVisible(), QString::fromLatin1(widget->metaObject()->className())});
    }
    return anyMenuWindowVisible(windows);
}

Companion::Companion(QObject* parent) : QObject(parent), m_desktop(DesktopKind::current())
{
    m_model = std::make_unique<AppModel>(AppModel::Environment::desktop(&Companion::menuVisible));
    connect(m_model.get(), &AppModel::changed, this, &Companion::updateTrayIcon);

    m_watcher = new TrayHostWatcher(QDBusConnection::sessionBus(), this);
    connect(m_watcher, &TrayHostWatcher::available, this, &Companion::makeTrayIcon);

    // No tray host yet: give the desktop a moment (at login the tray often comes up after us),
    // then show the panel as a window so the companion is usable all the same.
    m_grace.setSingleShot(true);
    m_grace.setInterval(kTrayGraceMs);
    connect(&m_grace, &QTimer::timeout, this, [this] {
        if (!m_item && !m_tray) {
            m_panelAsWindow = true;
            ensurePanel()->openAt(std::nullopt);
        }
    });
    m_watcher->start();
    if (!m_item && !m_tray)
        m_grace.start();
}

Companion::~Companion()
{
    delete m_item;
    delete m_tray;
    delete m_trayMenu;
    delete m_panel;
}

PanelWindow* Companion::ensurePanel()
{
    if (!m_panel) {
        m_menu = new ui::MenuView(m_model.get());
        m_panel = new PanelWindow(m_menu);
        // With no tray the window is the program: closing it must not leave a process running
        // that nobody can see or reach. Starting harkline again brings it back.
        connect(m_panel, &PanelWindow::windowClosed, this, [this] {
            if (!m_item && !m_tray)
                QCoreApplication::quit();
        });
    }
    m_panel->setMode(m_panelAsWindow ? PanelWindow::Mode::Window : PanelWindow::Mode::Popup);
    return m_panel;
}

void Companion::openPanel()
{
    ensurePanel();
    if (m_panel->isVisible()) {
        m_panel->raise();
        m_panel->activateWindow();
        return;
    }
    // "Open harkline" in the icon's menu, or a second start: the icon is where it was clicked
    // last, which is closer to the truth than a pointer XWayland has lost track of.
    const std::optional<QRect> anchor =
        m_lastAnchor ? m_lastAnchor : iconAnchor({}, m_desktop, pointerPosition);
    m_panel->openAt(anchor);
}

void Companion::iconClicked(QPoint reported)
{
    std::optional<QRect> anchor;
    if (m_tray && m_tray->geometry().isValid() && !m_tray->geometry().isEmpty())
        anchor = m_tray->geometry(); // XEmbed: the icon's real rectangle
    else
        anchor = iconAnchor(reported, m_desktop, pointerPosition);
    if (!reported.isNull() && anchor)
        m_lastAnchor = anchor;
    ensurePanel()->toggleAt(anchor);
}

void Companion::makeTrayMenu()
{
    m_trayMenu = new ui::ActionsMenu(m_model.get());
    QAction* open = new QAction(tr("Open harkline"), m_trayMenu);
    connect(open, &QAction::triggered, this, &Companion::openPanel);
    QAction* first = m_trayMenu->actions().value(0);
    m_trayMenu->insertAction(first, open);
    m_trayMenu->insertSeparator(first);
    connect(m_trayMenu, &QMenu::aboutToShow, m_trayMenu, &ui::ActionsMenu::reloadLoginItem);
}

void Companion::makeTrayIcon()
{
    if (m_item || m_tray)
        return;
    m_grace.stop();
    makeTrayMenu();
    if (m_watcher->kind() == TrayHostWatcher::Kind::StatusNotifier) {
        m_item = new StatusNotifierItem(m_trayMenu, QDBusConnection::sessionBus());
        connect(m_item, &StatusNotifierItem::activated, this, &Companion::iconClicked);
        // Hosts that recolour symbolic icons to suit their bar (GNOME's, Plasma's) get the
        // symbolic bells by name: from the icon theme when installed, else from the build.
        if (!QIcon::hasThemeIcon(themeName("bell") + QStringLiteral("-symbolic")) &&
            QDir(QStringLiteral(HARKLINE_BUILD_ICONS)).exists())
            m_item->setIconThemePath(QStringLiteral(HARKLINE_BUILD_ICONS));
        m_item->publish();
    } else {
        // An XEmbed tray: Qt's icon speaks it, and knows the icon's rectangle.
        m_tray = new QSystemTrayIcon;
        m_tray->setContextMenu(m_trayMenu);
        connect(m_tray, &QSystemTrayIcon::activated, this,
                [this](QSystemTrayIcon::ActivationReason why) {
                    if (why == QSystemTrayIcon::Trigger)
                        iconClicked({});
                });
    }
    // From now on the panel opens by the icon; a window already open stays until closed.
    m_panelAsWindow = false;
    if (m_panel)
        m_panel->setMode(PanelWindow::Mode::Popup);
    m_shownSymbol.clear();
    updateTrayIcon();
    if (m_tray)
        m_tray->show();
}

QString Companion::toolTip() const
{
    const auto& status = m_model->status();
    if (!status)
        return tr("Service not running");
    QStringList lines;
    if (!status->name.empty())
        lines << daemonText(status->name);
    if (status->pending > 0)
        lines << ui::MenuView::waitingText(status->pending);
    else
        for (const ClaudeSession& session : m_model->sessions())
            if (session.state == "waiting") {
                lines << tr("A session needs you");
                break;
            }
    lines << tr("%1 of %2 phones connected")
                 .arg(QString::number(status->connected), QString::number(status->devices));
    return lines.join(u'\n');
}

QString Companion::iconDescription() const
{
    const QString symbol = m_model->menuBarSymbol();
    if (symbol == QLatin1String("bell.slash"))
        return tr("harkline, service not running");
    if (symbol == QLatin1String("bell.badge"))
        return tr("harkline, waiting for you");
    return tr("harkline");
}

void Companion::updateTrayIcon()
{
    const QString symbol = m_model->menuBarSymbol();
    // The icon goes over D-Bus on every change; send it only when it is another one.
    const bool newSymbol = symbol != m_shownSymbol;
    m_shownSymbol = symbol;
    if (m_item) {
        if (newSymbol) {
            m_item->setIconDescription(iconDescription());
            const QString desktops = qEnvironmentVariable("XDG_CURRENT_DESKTOP");
            const bool recolours = desktops.contains(QLatin1String("GNOME"), Qt::CaseInsensitive) ||
                                   desktops.contains(QLatin1String("KDE"), Qt::CaseInsensitive);
            m_item->setIcon(recolours ? themeName(symbol) + QStringLiteral("-symbolic") : QString(),
                            ui::looks::traySymbol(symbol));
            m_item->setNeedsAttention(symbol == QLatin1String("bell.badge"));
        }
        // Hosts may read the body as markup: what came from the daemon must stay text.
        m_item->setToolTip(QStringLiteral("harkline"), toolTip().toHtmlEscaped());
    } else if (m_tray) {
        if (newSymbol)
            m_tray->setIcon(ui::looks::traySymbol(symbol));
        const QString tip = QStringLiteral("harkline\n") + toolTip();
        if (tip != m_tray->toolTip())
            m_tray->setToolTip(tip);
    }
}

} // namespace harkline::app
