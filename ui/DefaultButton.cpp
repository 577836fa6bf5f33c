#include "DefaultButton.h"

#include <QApplication>
#include <QKeyEvent>
#include <QPushButton>
#include <QShortcut>
#include <QToolButton>

namespace harkline::ui {

namespace {

class ButtonKeys final : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        const QEvent::Type type = event->type();
        if (type != QEvent::KeyPress && type != QEvent::ShortcutOverride)
            return false;
        const auto* key = static_cast<QKeyEvent*>(event);
        if ((key->key() != Qt::Key_Return && key->key() != Qt::Key_Enter) ||
            (key->modifiers() & ~Qt::KeypadModifier))
            return false;
        auto* button = qobject_cast<QAbstractButton*>(watched);
        if (!button || !button->isEnabled() || !button->isVisible())
            return false;
        // Claimed before the window's shortcuts see it: the default action must not win.
        event->accept();
        if (type == QEvent::KeyPress && !key->isAutoRepeat()) {
            if (auto* tool = qobject_cast<QToolButton*>(button); tool && tool->menu())
                tool->showMenu();
            else
                button->click();
        }
        return true;
    }
};

} // namespace

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

void installButtonKeys()
{
    static ButtonKeys* const filter = [] {
        auto* keys = new ButtonKeys(qApp);
        qApp->installEventFilter(keys);
        return keys;
    }();
    (void)filter;
}

} // namespace harkline::ui
