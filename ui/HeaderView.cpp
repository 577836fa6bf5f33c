#include "HeaderView.h"

#include "Access.h"
#include "ActionsMenu.h"
#include "AppModel.h"
#include "DisplayText.h"
#include "ElidedLabel.h"
#include "Looks.h"

#include <QBoxLayout>
#include <QPainter>
#include <QToolButton>

namespace harkline::ui {

namespace {

class StatusDot final : public QWidget
{
public:
    explicit StatusDot(QWidget* parent) : QWidget(parent)
    {
        access::setRole(this, QAccessible::Graphic);
        setFixedSize(9, 9);
    }
    void setColor(SystemColor color)
    {
        m_color = color;
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(looks::color(m_color, palette()));
        painter.drawEllipse(QRectF(rect()));
    }

private:
    SystemColor m_color = SystemColor::Red;
};

} // namespace

HeaderView::HeaderView(AppModel* model, QWidget* parent) : QWidget(parent), m_model(model)
{
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(10);

    m_dot = new StatusDot(this);
    row->addWidget(m_dot, 0, Qt::AlignVCenter);

    auto* lines = new QVBoxLayout;
    lines->setSpacing(1);
    m_title = new ElidedLabel(this);
    looks::style(m_title, TextStyle::Headline);
    m_subtitle = new ElidedLabel(this);
    looks::style(m_subtitle, TextStyle::Caption, SystemColor::Secondary);
    lines->addWidget(m_title);
    lines->addWidget(m_subtitle);
    row->addLayout(lines, 1);

    m_menu = new ActionsMenu(model, this);
    m_button = new QToolButton(this);
    m_button->setIcon(looks::symbol(QStringLiteral("ellipsis.circle"),
                                    looks::color(SystemColor::Primary, palette())));
    m_button->setIconSize(QSize(18, 18));
    m_button->setAutoRaise(true);
    m_button->setPopupMode(QToolButton::InstantPopup);
    m_button->setMenu(m_menu);
    m_button->setStyleSheet(
        QStringLiteral("QToolButton::menu-indicator { image: none; width: 0; }"));
    m_button->setAccessibleName(tr("Actions"));
    m_button->setToolTip(tr("Actions"));
    // Screen readers hear the role's "menu" from most readers; this says it for the rest.
    m_button->setAccessibleDescription(tr("Opens a menu"));
    m_button->setFocusPolicy(Qt::StrongFocus);
    row->addWidget(m_button, 0, Qt::AlignVCenter);

    connect(model, &AppModel::statusChanged, this, &HeaderView::update);
    update();
}

QString HeaderView::subtitleFor(const std::optional<DaemonStatus>& status)
{
    // Shown as it is built here, never translated: it reads like data (an address and counts).
    if (!status)
        return QStringLiteral("Service not running");
    // One arg() call per text: a host name holding "%2" must not be taken for a placeholder.
    const QString port = QString::number(status->port);
    // The host is isolated: a right-to-left or reversing one cannot reorder the port and counts.
    const QString address = status->hosts.empty()
                                ? QStringLiteral("port ") + port
                                : daemonText(status->hosts.front()) + QLatin1Char(':') + port;
    return QStringLiteral("%1 · %2 of %3 phones connected")
        .arg(address, QString::number(status->connected), QString::number(status->devices));
}

QString HeaderView::title() const
{
    return m_title->text();
}

QString HeaderView::subtitle() const
{
    return m_subtitle->text();
}

void HeaderView::reloadLoginItem()
{
    m_menu->reloadLoginItem();
}

void HeaderView::update()
{
    const auto& status = m_model->status();
    m_running = status.has_value();
    static_cast<StatusDot*>(m_dot)->setColor(m_running ? SystemColor::Green : SystemColor::Red);
    access::setName(m_dot, m_running ? tr("Service running") : tr("Service not running"));
    // The daemon's own name, even when empty; the fallback is only for no answer at all.
    m_title->setText(status ? inertText(status->name) : QStringLiteral("harkline"));
    m_subtitle->setText(subtitleFor(status));
}

} // namespace harkline::ui
