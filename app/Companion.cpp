#include "Companion.h"

#include "ActionsMenu.h"
#include "AppModel.h"
#include "Looks.h"
#include "MenuView.h"
#include "PanelWindow.h"
#include "TrayHostWatcher.h"
#include "WindowVisibility.h"

#include <QApplication>
#include <QCursor>
#include <QDBusConnection>
#include <QSystemTrayIcon>

namespace harkline::app {

namespace {

// Installed, the bells are also in the icon theme under names of their own: a tray host that
// draws items by name (and a theme that restyles them) gets the name. From a build folder the
// theme has none of them and the drawn symbol goes alone.
QIcon themedTraySymbol(const QString& symbol)
{
    const QString name = QStringLiteral(HARKLINE_APP_ID "-") + QString(symbol).replace('.', '-');
    return QIcon::hasThemeIcon(name) ? QIcon::fromTheme(name) : ui::looks::traySymbol(symbol);
}

} // namespace

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

Companion::Companion(QObject* parent) : QObject(parent)
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
        if (!m_tray) {
            m_panelAsWindow = true;
            ensurePanel()->openAt({});
        }
    });
    m_watcher->start();
    if (!m_tray)
        m_grace.start();
}

Companion::~Companion()
{
    delete m_tray;
    delete m_panel;
}

PanelWindow* Companion::ensurePanel()
{
    if (!m_panel) {
        m_menu = new ui::MenuView(m_model.get());
        m_panel = new PanelWindow(m_menu);
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
    m_panel->openAt(QRect(QCursor::pos(), QSize(1, 1)));
}

void Companion::makeTrayIcon()
{
    if (m_tray)
        return;
    m_grace.stop();
    m_tray = new QSystemTrayIcon;
    m_trayMenu = new ui::ActionsMenu(m_model.get());
    QAction* open = new QAction(tr("Open harkline"), m_trayMenu);
    connect(open, &QAction::triggered, this, &Companion::openPanel);
    QAction* first = m_trayMenu->actions().value(0);
    m_trayMenu->insertAction(first, open);
    m_trayMenu->insertSeparator(first);
    connect(m_trayMenu, &QMenu::aboutToShow, m_trayMenu, &ui::ActionsMenu::reloadLoginItem);
    m_tray->setContextMenu(m_trayMenu);

    connect(m_tray, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason why) {
                if (why != QSystemTrayIcon::Trigger)
                    return;
                // A StatusNotifierItem host reports no icon geometry: the pointer is the best
                // anchor.
                QRect anchor = m_tray->geometry();
                if (!anchor.isValid() || anchor.isEmpty())
                    anchor = QRect(QCursor::pos(), QSize(1, 1));
                ensurePanel()->toggleAt(anchor);
            });
    // From now on the panel opens by the icon; a window already open stays until closed.
    m_panelAsWindow = false;
    if (m_panel)
        m_panel->setMode(PanelWindow::Mode::Popup);
    m_shownSymbol.clear();
    updateTrayIcon();
    m_tray->show();
}

QString Companion::toolTip() const
{
    const auto& status = m_model->status();
    if (!status)
        return tr("harkline: service not running");
    if (status->pending > 0)
        return QStringLiteral("harkline: ") + ui::MenuView::waitingText(status->pending);
    for (const ClaudeSession& session : m_model->sessions())
        if (session.state == "waiting")
            return tr("harkline: a session needs you");
    return tr("harkline: %1 of %2 phones connected")
        .arg(QString::number(status->connected), QString::number(status->devices));
}

void Companion::updateTrayIcon()
{
    if (!m_tray)
        return;
    const QString symbol = m_model->menuBarSymbol();
    // The icon goes over D-Bus on every change; send it only when it is another one.
    if (symbol != m_shownSymbol) {
        m_shownSymbol = symbol;
        m_tray->setIcon(themedTraySymbol(symbol));
    }
    const QString tip = toolTip();
    if (tip != m_tray->toolTip())
        m_tray->setToolTip(tip);
}

} // namespace harkline::app
