#include "PanelWindow.h"

#include "Access.h"
#include "MenuView.h"
#include "PlasmaSurface.h"

#include <QApplication>
#include <QBoxLayout>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QScreen>
#include <QWindow>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>

namespace harkline::app {

namespace {
constexpr int kGap = 4;
constexpr int kEdgeBand = 48; // no tray bar is thicker than twice this

xcb_atom_t atom(xcb_connection_t* connection, const char* name)
{
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, uint16_t(std::strlen(name)), name), nullptr);
    const xcb_atom_t value = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    std::free(reply);
    return value;
}

// Keeps a window out of X11 task bars and pagers. Set on the unmapped window: window managers
// read the state when it is mapped, and Qt adds its own states to what it finds there.
void skipTaskbarOnX11(QWidget* window)
{
    auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || !x11->connection())
        return;
    xcb_connection_t* c = x11->connection();
    const xcb_atom_t states[] = {atom(c, "_NET_WM_STATE_SKIP_TASKBAR"),
                                 atom(c, "_NET_WM_STATE_SKIP_PAGER")};
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, xcb_window_t(window->winId()),
                        atom(c, "_NET_WM_STATE"), XCB_ATOM_ATOM, 32, 2, states);
    xcb_flush(c);
}

} // namespace

void PanelWindow::grabPointerOnX11(int attempt)
{
    auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!m_grabPointer || !x11 || !x11->connection() || !isVisible())
        return;
    // Owner events: our own windows (the panel, its menus) get their clicks as usual; the rest
    // come to the panel, outside its rectangle.
    xcb_connection_t* c = x11->connection();
    xcb_grab_pointer_reply_t* reply = xcb_grab_pointer_reply(
        c,
        xcb_grab_pointer(c, 1, xcb_window_t(winId()),
                         XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE,
                         XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC, XCB_WINDOW_NONE, XCB_CURSOR_NONE,
                         XCB_CURRENT_TIME),
        nullptr);
    const bool grabbed = reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
    std::free(reply);
    // Not yet viewable (the window manager is still mapping it), or a tray's menu still holds
    // the pointer: try again shortly, for a second at most.
    if (!grabbed && attempt < 20)
        QTimer::singleShot(50, this, [this, attempt] { grabPointerOnX11(attempt + 1); });
}

PanelWindow::PanelWindow(ui::MenuView* content, QWidget* parent)
    : QWidget(parent), m_content(content)
{
    // Screen readers list top-level windows by role; a plain widget would be a nameless container.
    ui::access::setRole(this, QAccessible::Window);
    m_grabPointer = QGuiApplication::platformName() == QLatin1String("xcb") &&
                    !qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
    // Our menus take the pointer while they are open and let it go when they close.
    if (m_grabPointer)
        qApp->installEventFilter(this);
    setWindowTitle(QStringLiteral("harkline"));
    setAccessibleName(QStringLiteral("harkline"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(content);
    // Several model changes arrive together (status, phones, sessions): fit once after them.
    m_fitLater.setSingleShot(true);
    m_fitLater.setInterval(0);
    connect(&m_fitLater, &QTimer::timeout, this, &PanelWindow::fit);
    connect(content, &ui::MenuView::contentChanged, &m_fitLater, qOverload<>(&QTimer::start));
    fit();
}

QRect PanelWindow::placement(const QSize& size, std::optional<QRect> anchor, const QRect& available)
{
    if (anchor && anchor->size() == QSize(1, 1)) {
        // Only the click's point is known. A tray sits in a bar along an edge, with its icons
        // centred across the bar: the bar then reaches as far from the edge as the point, twice.
        const QPoint p = anchor->topLeft();
        if (const int d = available.bottom() - p.y(); d >= 0 && d < kEdgeBand)
            anchor = QRect(p.x(), p.y() - d, 1, 2 * d + 1);
        else if (const int d = p.y() - available.top(); d >= 0 && d < kEdgeBand)
            anchor = QRect(p.x(), available.top(), 1, 2 * d + 1);
    }
    if (!anchor)
        return {available.topLeft() + QPoint((available.width() - size.width()) / 2,
                                             (available.height() - size.height()) / 2),
                size};
    const bool below = anchor->center().y() < available.center().y();
    int y = below ? anchor->bottom() + 1 + kGap : anchor->top() - kGap - size.height();
    int x = anchor->center().x() - size.width() / 2;
    x = std::min(x, available.right() + 1 - size.width());
    x = std::max(x, available.left());
    y = std::min(y, available.bottom() + 1 - size.height());
    y = std::max(y, available.top()); // a panel taller than the screen keeps its top visible
    return {QPoint(x, y), size};
}

void PanelWindow::openAt(std::optional<QRect> anchor)
{
    const Qt::WindowFlags flags =
        m_mode == Mode::Window
            ? Qt::Window | Qt::WindowCloseButtonHint | Qt::WindowMinimizeButtonHint
            : Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint;
    const bool popup = m_mode == Mode::Popup;
    if (popup != m_popupMode) {
        m_popupMode = popup;
        setWindowFlags(flags); // hides the window
    }
    fit();
    if (m_mode == Mode::Window) {
        if (isHidden()) {
            // Centred on the screen the first time; where the user left it afterwards.
            if (!property("placed").toBool()) {
                if (const QScreen* screen = QGuiApplication::primaryScreen())
                    move(placement(size(), std::nullopt, screen->availableGeometry()).topLeft());
                setProperty("placed", true);
            }
            show();
        }
        raise();
        activateWindow();
        return;
    }
    m_anchor = anchor;
    const QScreen* screen = anchor ? QGuiApplication::screenAt(anchor->center()) : nullptr;
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const QRect where =
        screen ? placement(size(), anchor, screen->availableGeometry()) : QRect(pos(), size());
    setGeometry(where);
    if (isHidden()) {
        skipTaskbarOnX11(this);
        show();
    }
    plasma::place(windowHandle(), where.topLeft());
    raise();
    activateWindow();
    grabPointerOnX11();
}

void PanelWindow::toggleAt(std::optional<QRect> anchor)
{
    if (isVisible()) {
        close();
        return;
    }
    if (m_closed.isValid() && m_closed.elapsed() < kReopenGuardMs)
        return;
    openAt(anchor);
}

bool PanelWindow::event(QEvent* event)
{
    switch (event->type()) {
    case QEvent::WindowActivate:
        // Keyboard users start in the panel, not one Tab away from it.
        if (!focusWidget())
            focusNextPrevChild(true);
        break;
    case QEvent::WindowDeactivate:
        // A click elsewhere. Our own menus opening over the panel are not leaving it, and
        // neither is the panel mapping itself again.
        if (m_mode == Mode::Popup && isVisible() && !QApplication::activePopupWidget() &&
            !(m_remapped.isValid() && m_remapped.elapsed() < kReopenGuardMs))
            close();
        break;
    default:
        break;
    }
    return QWidget::event(event);
}

bool PanelWindow::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::Hide && watched->isWidgetType() &&
        static_cast<QWidget*>(watched)->windowType() == Qt::Popup && m_mode == Mode::Popup)
        QTimer::singleShot(0, this, [this] { grabPointerOnX11(); });
    return QWidget::eventFilter(watched, event);
}

void PanelWindow::mousePressEvent(QMouseEvent* event)
{
    if (m_mode == Mode::Popup && !rect().contains(event->position().toPoint())) {
        close(); // a click elsewhere, seen through the grab
        return;
    }
    QWidget::mousePressEvent(event);
}

void PanelWindow::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}

void PanelWindow::closeEvent(QCloseEvent* event)
{
    QWidget::closeEvent(event);
    if (m_mode == Mode::Window)
        Q_EMIT windowClosed();
}

void PanelWindow::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    if (auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
        m_grabPointer && x11 && x11->connection()) {
        xcb_ungrab_pointer(x11->connection(), XCB_CURRENT_TIME);
        xcb_flush(x11->connection());
    }
    m_closed.start();
}

void PanelWindow::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    m_mappedHeight = height();
}

void PanelWindow::fit()
{
    // Child layouts recompute their sizes on a posted event; let them before asking.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
    const QSize size(ui::MenuView::kWidth, m_content->heightForWidth(ui::MenuView::kWidth));
    if (size == this->size() && size == minimumSize())
        return;
    setFixedSize(size);
    if (!isVisible())
        return;
    const QScreen* s = screen();
    if (!s)
        return;
    if (m_mode == Mode::Popup) {
        // Stay by the icon: a panel above a bottom bar grows upwards.
        const QRect avail = s->availableGeometry();
        const QRect where = placement(size, m_anchor, avail);
        // Plasma takes a window's position only as it maps it. Other Wayland compositors place
        // the panel themselves (sway centres it) and keep that place as it grows, so a panel
        // that opened small (the service not running) would run off the screen once it fills:
        // there a new mapping lets the compositor place it anew.
        const bool remap =
            plasma::available()
                ? where.topLeft() != pos()
                : QGuiApplication::platformName().startsWith(u"wayland") &&
                      (avail.height() - m_mappedHeight) / 2 + size.height() > avail.height();
        if (remap) {
            m_remapped.start();
            hide();
            setGeometry(where);
            show();
            plasma::place(windowHandle(), where.topLeft());
            activateWindow();
            return;
        }
        move(where.topLeft());
        return;
    }
    // Growing downwards off the screen is not allowed: move up as far as needed.
    const QRect avail = s->availableGeometry();
    QPoint pos = this->pos();
    pos.setY(std::max(avail.top(), std::min(pos.y(), avail.bottom() + 1 - size.height())));
    move(pos);
}

} // namespace harkline::app
