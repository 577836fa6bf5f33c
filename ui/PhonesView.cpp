#include "PhonesView.h"

#include "RowsById.h"

#include "AppModel.h"
#include "Looks.h"
#include "PhoneRow.h"
#include "SectionTitle.h"

#include <QBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>

namespace harkline::ui {

PhonesView::PhonesView(AppModel* model, QWidget* parent) : QWidget(parent), m_model(model)
{
    m_column = new QVBoxLayout(this);
    m_column->setContentsMargins(0, 0, 0, 0);
    m_column->setSpacing(6);

    m_column->addWidget(new SectionTitle(tr("Phones"), this));
    m_empty = new QLabel(tr("No phone paired yet."), this);
    m_empty->setTextFormat(Qt::PlainText);
    looks::style(m_empty, TextStyle::Callout, SystemColor::Secondary);
    m_column->addWidget(m_empty);

    m_rowBox = new QWidget(this);
    m_rowColumn = new QVBoxLayout(m_rowBox);
    m_rowColumn->setContentsMargins(0, 0, 0, 0);
    m_rowColumn->setSpacing(6);
    m_column->addWidget(m_rowBox);

    m_pair =
        new QPushButton(looks::symbol(QStringLiteral("qrcode"), looks::color(SystemColor::Primary)),
                        tr("Pair a Phone…"), this);
    m_pair->setAutoDefault(false);
    m_column->addWidget(m_pair, 0, Qt::AlignLeft);
    connect(m_pair, &QPushButton::clicked, model, &AppModel::startPairing);

    connect(model, &AppModel::devicesChanged, this, &PhonesView::update);
    update();
}

PhoneRow* PhonesView::row(const std::string& id) const
{
    for (PhoneRow* r : m_rows)
        if (r->device().id == id)
            return r;
    return nullptr;
}

void PhonesView::update()
{
    const std::vector<PairedDevice>& devices = m_model->devices();
    m_empty->setVisible(devices.empty());

    std::vector<PhoneRow*> rows = m_rows;
    reuseRowsById(
        rows, devices, [](PhoneRow* r) { return r->device().id; },
        [this](const PairedDevice& device, PhoneRow* r) {
            if (!r) {
                r = new PhoneRow(m_rowBox);
                connect(r, &PhoneRow::trashClicked, this,
                        [this, r] { setRemoving(r->device().id); });
                connect(r, &PhoneRow::cancelClicked, this, [this] { setRemoving(std::nullopt); });
                connect(r, &PhoneRow::removeClicked, this, [this, r] {
                    const PairedDevice device = r->device();
                    setRemoving(std::nullopt);
                    m_model->revoke(device);
                });
            }
            r->setDevice(device);
            return r;
        });
    for (int i = 0; i < int(rows.size()); ++i) {
        m_rowColumn->removeWidget(rows[std::size_t(i)]);
        m_rowColumn->insertWidget(i, rows[std::size_t(i)]);
        rows[std::size_t(i)]->show();
    }
    m_rows = std::move(rows);
    m_rowBox->setVisible(!m_rows.empty());
    // Tab goes through the rows as they stand on screen, then to "Pair a Phone…".
    QWidget* previous = nullptr;
    for (PhoneRow* r : m_rows)
        for (QWidget* w :
             {static_cast<QWidget*>(r->trashButton()), static_cast<QWidget*>(r->cancelButton()),
              static_cast<QWidget*>(r->removeButton())}) {
            if (previous)
                setTabOrder(previous, w);
            previous = w;
        }
    if (previous)
        setTabOrder(previous, m_pair);
    setRemoving(m_removing);
}

void PhonesView::setRemoving(std::optional<std::string> id)
{
    // Kept even when that phone has left the list: it then matches no row.
    m_removing = std::move(id);
    for (PhoneRow* r : m_rows)
        r->setConfirming(m_removing && *m_removing == r->device().id);
}

} // namespace harkline::ui
