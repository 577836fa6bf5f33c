#pragma once

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

#include <optional>

namespace harkline::ui {
class MenuView;
}

namespace harkline::app {

// Holds the menu: a frameless window by the tray icon, or, where there is no tray, a small
// ordinary window titled "harkline". Always sized to the menu's content and kept on the screen.
//
// By the tray it is a real window that takes the keyboard focus, not a popup: under XWayland a
// popup gets no keyboard (Escape and clicks elsewhere never reached it), and screen readers do
// not see popups at all. It closes on Escape, when it loses the focus (a click elsewhere), and
// on a click on the icon.
class PanelWindow : public QWidget
{
    Q_OBJECT

public:
    enum class Mode { Popup, Window };

    explicit PanelWindow(ui::MenuView* content, QWidget* parent = nullptr);

    // Takes effect the next time the panel opens.
    void setMode(Mode mode) { m_mode = mode; }
    Mode mode() const { return m_mode; }

    // Opens by `anchor` (the tray icon's rectangle, or the point the tray reported), or centred
    // on the screen when where the icon is cannot be known; as a window in Window mode.
    void openAt(std::optional<QRect> anchor);
    // A click on the tray icon: closes an open panel; opens a closed one, unless it was closed a
    // moment ago by that same click (the panel loses the focus on the press, the icon reports
    // the release).
    void toggleAt(std::optional<QRect> anchor);

    // Where a panel of `size` goes for an icon at `anchor`: below it when the icon is in the upper
    // half of the screen, above it otherwise, centred on it, and always fully inside `available`.
    // Without an anchor, in the middle of `available`.
    static QRect placement(const QSize& size, std::optional<QRect> anchor, const QRect& available);

    static constexpr int kReopenGuardMs = 350;

signals:
    // In Window mode, the user closed the window (its close button or Escape).
    void windowClosed();

protected:
    bool event(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void fit();
    void grabPointerOnX11(int attempt = 0);

    // On an X11 session a click on the bare desktop or a dock moves no focus, so the panel holds
    // the pointer as a menu does, with the clicks on its own windows passed through.
    bool m_grabPointer = false;
    std::optional<bool> m_popupMode; // whether the window flags in place are the popup's
    ui::MenuView* m_content;
    Mode m_mode = Mode::Popup;
    std::optional<QRect> m_anchor; // of the open panel, to stay by the icon as it grows
    QElapsedTimer m_closed;
    QElapsedTimer m_remapped;
    int m_mappedHeight = 0; // the height the compositor last placed the panel at
    QTimer m_fitLater;
};

} // namespace harkline::app
