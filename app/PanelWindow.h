#pragma once

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

namespace harkline::ui {
class MenuView;
}

namespace harkline::app {

// Holds the menu: a frameless popup next to the tray icon, or, where there is no tray, a small
// ordinary window titled "harkline". Always sized to the menu's content and kept on the screen.
class PanelWindow : public QWidget
{
    Q_OBJECT

public:
    enum class Mode { Popup, Window };

    explicit PanelWindow(ui::MenuView* content, QWidget* parent = nullptr);

    // Takes effect the next time the panel opens.
    void setMode(Mode mode) { m_mode = mode; }
    Mode mode() const { return m_mode; }

    // Opens as a popup next to `anchor` (the tray icon's rectangle, or a point where the tray
    // gives none); as a window in Window mode.
    void openAt(const QRect& anchor);
    // A click on the tray icon: closes an open panel; opens a closed one, unless it was closed a
    // moment ago by that same click (a popup closes on the press, the icon reports the release).
    void toggleAt(const QRect& anchor);

    // Where a panel of `size` goes for an icon at `anchor`: below it when the icon is in the upper
    // half of the screen, above it otherwise, centred on it, and always fully inside `available`.
    static QRect placement(const QSize& size, const QRect& anchor, const QRect& available);

    static constexpr int kReopenGuardMs = 350;

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void fit();

    ui::MenuView* m_content;
    Mode m_mode = Mode::Popup;
    QElapsedTimer m_closed;
    QTimer m_fitLater;
};

} // namespace harkline::app
