#pragma once

#include "Records.h"

#include <QWidget>

#include <optional>

class QToolButton;

namespace harkline {
class AppModel;
}

namespace harkline::ui {

class ActionsMenu;
class ElidedLabel;

// The top line of the panel: a green or red dot, the daemon's name, where it listens and how many
// phones are connected, and the actions menu behind an ellipsis button.
class HeaderView : public QWidget
{
    Q_OBJECT

public:
    explicit HeaderView(AppModel* model, QWidget* parent = nullptr);

    // "host:port · c of d phones connected", or "Service not running" without a status.
    static QString subtitleFor(const std::optional<DaemonStatus>& status);

    QString title() const;
    QString subtitle() const;
    bool dotIsGreen() const { return m_running; }
    ActionsMenu* actionsMenu() const { return m_menu; }
    QToolButton* actionsButton() const { return m_button; }

    // Reads the login item again; done each time the panel opens, as the header starts afresh.
    void reloadLoginItem();

private:
    void update();

    AppModel* m_model;
    QWidget* m_dot;
    ElidedLabel* m_title;
    ElidedLabel* m_subtitle;
    QToolButton* m_button;
    ActionsMenu* m_menu;
    bool m_running = false;
};

} // namespace harkline::ui
