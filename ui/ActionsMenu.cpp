#include "ActionsMenu.h"

#include "Access.h"
#include "AppModel.h"

#include <QCoreApplication>

namespace harkline::ui {

ActionsMenu::ActionsMenu(AppModel* model, QWidget* parent) : QMenu(parent), m_model(model)
{
    access::setRole(this, QAccessible::PopupMenu); // its entries say which can be checked
    setAccessibleName(tr("Actions"));
    m_sendTest = addAction(tr("Send Test Notification"), model, &AppModel::sendTest);
    m_restart = addAction(tr("Restart Service"), model, [model] { model->startService(true); });
    m_openLog = addAction(tr("Open Log"), model, &AppModel::openLog);
    addSeparator();
    m_openAtLogin = addAction(tr("Open at Login"));
    m_openAtLogin->setCheckable(true);
    // triggered, not toggled: only the user's choice reaches the login item, never reloadLoginItem.
    connect(m_openAtLogin, &QAction::triggered, model,
            [model](bool on) { model->setOpensAtLogin(on); });
    addSeparator();
    m_quit = addAction(tr("Quit"), qApp, &QCoreApplication::quit, Qt::QueuedConnection);

    connect(model, &AppModel::statusChanged, this, &ActionsMenu::updateEnabled);
    updateEnabled();
    reloadLoginItem();
}

void ActionsMenu::reloadLoginItem()
{
    m_openAtLogin->setChecked(m_model->opensAtLogin());
}

void ActionsMenu::updateEnabled()
{
    m_sendTest->setEnabled(m_model->status().has_value());
}

} // namespace harkline::ui
