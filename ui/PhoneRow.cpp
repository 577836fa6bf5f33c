#include "PhoneRow.h"

#include "DisplayText.h"
#include "ElidedLabel.h"
#include "Looks.h"
#include "RelativeTime.h"
#include "WrappedText.h"

#include <QBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>

namespace harkline::ui {

PhoneRow::PhoneRow(QWidget* parent) : QWidget(parent)
{
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);

    auto* icon = new QLabel(this);
    icon->setPixmap(looks::symbol(QStringLiteral("iphone"), looks::color(SystemColor::Primary))
                        .pixmap(QSize(18, 18), devicePixelRatioF()));
    icon->setAccessibleName(tr("Phone"));
    row->addWidget(icon, 0, Qt::AlignVCenter);

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
    m_trash->setAccessibleName(tr("Unpair this phone"));
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
    refreshTime();
}

void PhoneRow::refreshTime()
{
    m_paired->setText(tr("Paired %1").arg(relativeTimePhrase(m_device.paired)));
    setAccessibleName(m_name->text());
    setAccessibleDescription(m_paired->text());
}

void PhoneRow::setConfirming(bool on)
{
    m_confirming = on;
    m_trash->setVisible(!on);
    m_cancel->setVisible(on);
    m_remove->setVisible(on);
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
