#include "PhoneRow.h"

#include "Access.h"
#include "DisplayText.h"
#include "ElidedLabel.h"
#include "Looks.h"
#include "RelativeTime.h"
#include "WrappedText.h"

#include <QApplication>
#include <QBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>

namespace harkline::ui {

PhoneRow::PhoneRow(QWidget* parent) : QWidget(parent)
{
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);

    looks::decorate(this, row,
                    looks::symbol(QStringLiteral("iphone"), looks::color(SystemColor::Primary)),
                    QSize(18, 18));

    auto* lines = new QVBoxLayout;
    lines->setSpacing(0);
    m_name = new ElidedLabel(this);
    looks::style(m_name, TextStyle::Callout);
    m_paired = new WrappedLabel(this);
    looks::style(m_paired, TextStyle::Caption, SystemColor::Secondary);
    lines->addWidget(m_name);
    lines->addWidget(m_paired);
    row->addLayout(lines, 1);

    m_trash = new QToolButton(this);
    m_trash->setIcon(looks::symbol(QStringLiteral("trash"), looks::color(SystemColor::Primary)));
    m_trash->setIconSize(QSize(16, 16));
    m_trash->setAutoRaise(true);
    m_trash->setToolTip(tr("Unpair this phone"));
    m_trash->setFocusPolicy(Qt::StrongFocus);
    m_cancel = new QPushButton(tr("Cancel"), this);
    m_cancel->setAutoDefault(false);
    m_remove = new QPushButton(tr("Remove"), this);
    m_remove->setAutoDefault(false);
    // A destructive button: its title in red, as the desktop draws such buttons.
    QPalette red = m_remove->palette();
    red.setColor(QPalette::ButtonText, looks::color(SystemColor::Red, red));
    m_remove->setPalette(red);
    row->addWidget(m_trash, 0, Qt::AlignVCenter);
    row->addWidget(m_cancel, 0, Qt::AlignVCenter);
    row->addWidget(m_remove, 0, Qt::AlignVCenter);

    connect(m_trash, &QToolButton::clicked, this, &PhoneRow::trashClicked);
    connect(m_cancel, &QPushButton::clicked, this, &PhoneRow::cancelClicked);
    connect(m_remove, &QPushButton::clicked, this, &PhoneRow::removeClicked);
    setConfirming(false);
}

void PhoneRow::setDevice(const PairedDevice& device)
{
    m_device = device;
    m_name->setText(inertText(device.name));
    // The names say which phone: "Unpair Pixel 8", and on "Cancel" the question being asked.
    access::setName(m_trash, tr("Unpair %1").arg(m_name->text()));
    access::setDescription(m_cancel, tr("Unpair %1?").arg(m_name->text()));
    access::setName(m_remove, tr("Remove %1").arg(m_name->text()));
    refreshTime();
}

void PhoneRow::refreshTime()
{
    m_paired->setText(tr("Paired %1").arg(relativeTimePhrase(m_device.paired)));
    access::setName(this, m_name->text());
    access::setDescription(this, m_paired->text());
}

void PhoneRow::setConfirming(bool on)
{
    // Whoever had the focus in this row keeps it here: on "Cancel" as the question opens (not
    // past it), back on the trash button as it closes.
    const QWidget* focus = QApplication::focusWidget();
    const bool focusHere = focus && isAncestorOf(focus);
    const bool moveFocus = focusHere && on != m_confirming;
    m_confirming = on;
    // What comes is shown and focused before what goes is hidden: hiding a focused button
    // would first send the focus on down the chain, and a screen reader would say so.
    if (on) {
        m_cancel->show();
        m_remove->show();
    } else {
        m_trash->show();
    }
    if (moveFocus)
        (on ? static_cast<QWidget*>(m_cancel) : m_trash)->setFocus(Qt::OtherFocusReason);
    m_trash->setVisible(!on);
    m_cancel->setVisible(on);
    m_remove->setVisible(on);
}

void PhoneRow::keyPressEvent(QKeyEvent* event)
{
    // Escape takes back the question before it closes the panel.
    if (event->key() == Qt::Key_Escape && m_confirming) {
        Q_EMIT cancelClicked();
        return;
    }
    QWidget::keyPressEvent(event);
}

QString PhoneRow::nameText() const
{
    return m_name->text();
}

QString PhoneRow::pairedText() const
{
    return m_paired->text();
}

} // namespace harkline::ui
