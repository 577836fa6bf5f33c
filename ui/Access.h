#pragma once

#include <QAccessible>
#include <QObject>
#include <QPointer>
#include <QString>

class QWidget;

namespace harkline::ui::access {

// What screen readers see, in one place: roles that differ from a widget's class, names that
// change only when their value does, and spoken outcomes.

// Gives `widget` this role in place of the one its class would have (a heading, an image, a
// window). Set before the widget is first shown.
void setRole(QWidget* widget, QAccessible::Role role);

// Each set of a name or description is an event a screen reader may act on: these set only a
// value that differs.
void setName(QWidget* widget, const QString& name);
void setDescription(QWidget* widget, const QString& description);

// Speaks `text` once, as a notification of the window that shows `source`, while that window is
// on screen. Without an Announcer in that window, or with the window hidden, nothing is said.
void announce(QWidget* source, const QString& text);

// The window's one notification for screen readers: an accessible object of the notification
// role with one label, outside the widget tree, so that it becomes "showing" only when there is
// something to say (a widget would also do so each time the window opens or closes). Orca speaks
// such an object and its label when it shows; Qt 6.4 has no announcement event of its own.
class Announcer final : public QObject
{
    Q_OBJECT

public:
    // Joins `host`'s accessible children as the last one. Made before `host` is first shown.
    explicit Announcer(QWidget* host);

    void say(const QString& text, QWidget* source);
    QString text() const { return m_text; }
    int count() const { return m_count; } // outcomes said so far
    QWidget* host() const;
    // Where the last outcome shows on screen, for readers that place what they say.
    QRect rect() const;
    QObject* line() { return &m_line; }

private:
    QString m_text;
    int m_count = 0;
    QPointer<QWidget> m_source;
    QObject m_line;
};

} // namespace harkline::ui::access
