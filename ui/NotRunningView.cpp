#include "NotRunningView.h"

#include "AppModel.h"
#include "DefaultButton.h"
#include "Looks.h"
#include "WrappedText.h"

#include <QBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace harkline::ui {

NotRunningView::NotRunningView(AppModel* model, QWidget* parent) : QWidget(parent)
{
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(8);

    m_message = new WrappedLabel(this);
    m_message->setText(tr("The harkline service is not running, so phones get no notifications."));
    looks::style(m_message, TextStyle::Callout);
    column->addWidget(m_message);

    auto* buttons = new QHBoxLayout;
    m_start = new QPushButton(tr("Start Service"), this);
    makeDefaultButton(m_start);
    m_openLog = new QPushButton(tr("Open Log"), this);
    m_openLog->setAutoDefault(false);
    buttons->addWidget(m_start);
    buttons->addWidget(m_openLog);
    buttons->addStretch(1);
    column->addLayout(buttons);

    connect(m_start, &QPushButton::clicked, model, [model] { model->startService(false); });
    connect(m_openLog, &QPushButton::clicked, model, &AppModel::openLog);
}

} // namespace harkline::ui
