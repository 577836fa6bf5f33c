#pragma once

#include <QMenu>

namespace harkline {
class AppModel;
}

namespace harkline::ui {

// The companion's actions: send a test, restart the service, open the log, open at login, quit.
// The header shows it behind its ellipsis button; the tray icon carries another instance as its
// context menu, so both follow the same enabled rules.
class ActionsMenu : public QMenu
{
    Q_OBJECT

public:
    explicit ActionsMenu(AppModel* model, QWidget* parent = nullptr);

    // Sets the "Open at Login" check mark to the login item's current state. The mark then
    // follows only the user: a change that fails is reported, not undone.
    void reloadLoginItem();

    QAction* sendTestAction() const { return m_sendTest; }
    QAction* restartAction() const { return m_restart; }
    QAction* openLogAction() const { return m_openLog; }
    QAction* openAtLoginAction() const { return m_openAtLogin; }
    QAction* quitAction() const { return m_quit; }

private:
    void updateEnabled();

    AppModel* m_model;
    QAction* m_sendTest;
    QAction* m_restart;
    QAction* m_openLog;
    QAction* m_openAtLogin;
    QAction* m_quit;
};

} // namespace harkline::ui
