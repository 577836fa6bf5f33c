#pragma once

class QPushButton;

namespace harkline::ui {

// Makes `button` the panel's default action: drawn as the default, and pressed by Return or Enter
// anywhere in its window while it is visible, as a menu's default button is.
void makeDefaultButton(QPushButton* button);

} // namespace harkline::ui
