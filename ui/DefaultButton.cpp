#include "DefaultButton.h"

#include <QPushButton>
#include <QShortcut>

namespace harkline::ui {

void makeDefaultButton(QPushButton* button)
{
    button->setDefault(true);
    for (const int key : {int(Qt::Key_Return), int(Qt::Key_Enter)}) {
        auto* shortcut = new QShortcut(QKeySequence(key), button);
        shortcut->setContext(Qt::WindowShortcut);
        QObject::connect(shortcut, &QShortcut::activated, button, [button] {
            if (button->isVisible() && button->isEnabled())
                button->click();
        });
    }
}

} // namespace harkline::ui
