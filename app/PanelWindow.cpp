#include "PanelWindow.h"

#include "MenuView.h"

#include <QBoxLayout>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>

namespace harkline::app {

namespace {
constexpr int kGap = 4;
}

PanelWindow::PanelWindow(ui::MenuView* content, QWidget* parent)
    : QWidget(parent), m_content(content)
{
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

QRect PanelWindow::placement(const QSize& size, const QRect& anchor, const QRect& available)
{
    const bool below = anchor.center().y() < available.center().y();
    int y = below ? anchor.bottom() + 1 + kGap : anchor.top() - kGap - size.height();
    int x = anchor.center().x() - size.width() / 2;
    x = std::min(x, available.right() + 1 - size.width());
    x = std::max(x, available.left());
    y = std::min(y, available.bottom() + 1 - size.height());
    y = std::max(y, available.top()); // a panel taller than the screen keeps its top visible
    return {QPoint(x, y), size};
}

void PanelWindow::openAt(const QRect& anchor)
{
    if (m_mode == Mode::Window) {
        if (windowType() != Qt::Window)
            setWindowFlags(Qt::Window | Qt::WindowCloseButtonHint | Qt::WindowMinimizeButtonHint);
        fit();
        if (isHidden()) {
            // Centred on the screen the first time; where the user left it afterwards.
            if (!property("placed").toBool()) {
                const QScreen* screen = QGuiApplication::primaryScreen();
                if (screen)
                    move(screen->availableGeometry().center() - rect().center());
                setProperty("placed", true);
            }
            show();
        }
        raise();
        activateWindow();
        return;
    }
    if (windowType() != Qt::Popup)
        setWindowFlags(Qt::Popup | Qt::FramelessWindowHint);
    fit();
    const QScreen* screen = QGuiApplication::screenAt(anchor.center());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (screen)
        setGeometry(placement(size(), anchor, screen->availableGeometry()));
    show();
    activateWindow();
}

void PanelWindow::toggleAt(const QRect& anchor)
{
    if (isVisible()) {
        close();
        return;
    }
    if (m_closed.isValid() && m_closed.elapsed() < kReopenGuardMs)
        return;
    openAt(anchor);
}

void PanelWindow::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape && m_mode == Mode::Popup) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}

void PanelWindow::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    m_closed.start();
}

void PanelWindow::fit()
{
    // Child layouts recompute their sizes on a posted event; let them before asking.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
    const QSize size(ui::MenuView::kWidth, m_content->heightForWidth(ui::MenuView::kWidth));
    setFixedSize(size);
    // Growing downwards off the screen is not allowed: move up as far as needed.
    if (isVisible()) {
        if (const QScreen* s = screen()) {
            const QRect avail = s->availableGeometry();
            QPoint pos = this->pos();
            pos.setY(std::max(avail.top(), std::min(pos.y(), avail.bottom() + 1 - size.height())));
            move(pos);
        }
    }
}

} // namespace harkline::app
