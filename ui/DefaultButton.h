#pragma once

class QPushButton;

namespace harkline::ui {

// Makes `button` the panel's default action: drawn as the default, and pressed by Return or Enter
// anywhere in its window while it is visible, as a menu's default button is, unless the focus is
// on another button (installButtonKeys).
void makeDefaultButton(QPushButton* button);

// Return and Enter press the button that has the focus, as Space does; a button with a menu
// opens it. Installed once for the application; the default action then yields to it.
void installButtonKeys();

} // namespace harkline::ui
