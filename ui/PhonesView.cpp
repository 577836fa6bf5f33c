#include "PhonesView.h"

#include "RowsById.h"

#include "AppModel.h"
#include "Looks.h"
#include "PhoneRow.h"
#include "SectionTitle.h"

#include <QApplication>
#include <QBoxLayout>
#include <QEvent>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QToolButton>

namespace harkline::ui {

PhonesView::PhonesView(AppModel* model, QWidget* parent) : QWidget(parent), m_model(model)
{
    m_column = new QVBoxLayout(this);
    m_column->setContentsMargins(0, 0, 0, 0);
    m_column->setSpacing(6);

    m_column->addWidget(new SectionTitle(tr("Phones"), this));
    m_empty = new QLabel(this);
    m_empty->setTextFormat(Qt::PlainText); // before the text: each set would name it anew
    m_empty->setText(tr("No phone paired yet."));
    looks::style(m_empty, TextStyle::Callout, SystemColor::Secondary);
    m_column->addWidget(m_empty);

    m_rowsArea = new QScrollArea(this);
    m_rowsArea->setFrameShape(QFrame::NoFrame);
    m_rowsArea->setFocusPolicy(Qt::NoFocus); // the buttons in it take the focus, not the area
    m_rowsArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_rowsArea->setWidgetResizable(true);
    m_rowsArea->viewport()->setAutoFillBackground(false);
    m_rowBox = new QWidget;
    m_rowColumn = new QVBoxLayout(m_rowBox);
    m_rowColumn->setContentsMargins(0, 0, 0, 0);
    m_rowColumn->setSpacing(6);
    m_rowsArea->setWidget(m_rowBox);
    m_rowBox->setAutoFillBackground(false); // after setWidget(), which turns it on
    m_rowBox->installEventFilter(this);
    m_column->addWidget(m_rowsArea);
    // A button reached with Tab in rows scrolled out of sight comes into view.
    connect(qApp, &QApplication::focusChanged, this, [this](QWidget*, QWidget* now) {
        if (now && m_rowBox->isAncestorOf(now))
            m_rowsArea->ensureWidgetVisible(now);
    });

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

    const std::vector<PhoneRow*> before = m_rows;
    // The row with the focus may leave (a phone just removed): the focus then goes to the row
    // that takes its place, or to "Pair a Phone…", not to nowhere.
    int focusedRow = -1;
    if (const QWidget* focus = QApplication::focusWidget())
        for (int i = 0; i < int(m_rows.size()); ++i)
            if (m_rows[std::size_t(i)]->isAncestorOf(focus))
                focusedRow = i;
    const std::string focusedId =
        focusedRow >= 0 ? m_rows[std::size_t(focusedRow)]->device().id : std::string();
    reuseRowsById(
        m_rows, devices, [](PhoneRow* r) { return r->device().id; },
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
    if (m_rows != before) {
        // The layout, the reading order (the order of the children) and the focus chain follow
        // the list; an unchanged list leaves all three alone.
        for (int i = 0; i < int(m_rows.size()); ++i) {
            PhoneRow* r = m_rows[std::size_t(i)];
            if (m_rowColumn->indexOf(r) != i) {
                m_rowColumn->removeWidget(r);
                m_rowColumn->insertWidget(i, r);
            }
            r->raise();
            r->show();
        }
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
        Q_EMIT rowsChanged();
    }
    m_rowsArea->setVisible(!m_rows.empty());
    setRemoving(m_removing);
    fitRows();
    if (focusedRow >= 0 && !row(focusedId)) {
        if (m_rows.empty())
            m_pair->setFocus(Qt::OtherFocusReason);
        else
            m_rows[std::size_t(std::min(focusedRow, int(m_rows.size()) - 1))]
                ->trashButton()
                ->setFocus(Qt::OtherFocusReason);
    }
}

int PhonesView::rowsNaturalHeight(int width) const
{
    if (m_rows.empty())
        return 0;
    return m_rowBox->hasHeightForWidth() ? m_rowBox->heightForWidth(width)
                                         : m_rowBox->sizeHint().height();
}

int PhonesView::rowsHeight() const
{
    return m_rowsArea->isHidden() ? 0 : m_rowsArea->maximumHeight();
}

int PhonesView::rowsMinimumHeight() const
{
    if (m_rows.empty())
        return 0;
    const int row = m_rows.front()->sizeHint().height();
    return std::min(rowsNaturalHeight(width()), 2 * row + m_rowColumn->spacing());
}

void PhonesView::setRowsHeightLimit(int height)
{
    if (height == m_rowsLimit)
        return;
    m_rowsLimit = height;
    fitRows();
}

void PhonesView::fitRows()
{
    const int width = this->width() > 0 ? this->width() : sizeHint().width();
    m_rowsArea->setFixedHeight(std::min(rowsNaturalHeight(width), m_rowsLimit));
}

bool PhonesView::eventFilter(QObject* watched, QEvent* event)
{
    // The rows' own layout changed (a row came, a line wrapped): the area follows.
    if (watched == m_rowBox && event->type() == QEvent::LayoutRequest)
        fitRows();
    return QWidget::eventFilter(watched, event);
}

void PhonesView::setRemoving(std::optional<std::string> id)
{
    // Kept even when that phone has left the list: it then matches no row.
    m_removing = std::move(id);
    for (PhoneRow* r : m_rows)
        r->setConfirming(m_removing && *m_removing == r->device().id);
}

} // namespace harkline::ui
