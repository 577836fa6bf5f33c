#pragma once

#include <QPoint>

#include <optional>

class QWindow;

namespace harkline::app::plasma {

// KDE Plasma's compositor lets a window place itself and stay out of the task manager and the
// window switcher (org_kde_plasma_shell). Elsewhere, and off Wayland, these do nothing.

// True when the compositor we run on offers it. Asks the compositor once.
bool available();

// Call right after the window is shown, and again to move it: keeps it out of the task manager
// and window switcher, and moves it to `position` (screen coordinates) when one is given.
void place(QWindow* window, std::optional<QPoint> position);

} // namespace harkline::app::plasma
