#include "MenuView.h"

#include "Access.h"
#include "AppModel.h"
#include "DefaultButton.h"
#include "HeaderView.h"
#include "Looks.h"
#include "NotRunningView.h"
#include "PairingView.h"
#include "PhonesView.h"
#include "SectionTitle.h"
#include "SessionsView.h"
#include "WrappedText.h"

#include <QBoxLayout>
#include <QCoreApplication>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QShowEvent>
#include <QWindow>

namespace harkline::ui {

namespace {

constexpr int kUnbounded = 1 << 20;

QWidget* divider(QWidget* parent)
{
    auto* line = new QWidget(parent);
    line->setFixedHeight(1);
    line->setAutoFillBackground(true);
    QPalette palette = line->palette();
    QColor color = palette.color(QPalette::WindowText);
    color.setAlphaF(0.15);
    palette.setColor(QPalette::Window, color);
    line->setPalette(palette);
    return line;
}

} // namespace

MenuView::MenuView(AppModel* model, QWidget* parent)
    : QWidget(parent), m_model(model), m_announcer(new access::Announcer(this))
{
    installButtonKeys();
    m_column = new QVBoxLayout(this);
    m_column->setContentsMargins(kPadding, kPadding, kPadding, kPadding);
    m_column->setSpacing(kSpacing);
    setFixedWidth(kWidth);

    m_header = new HeaderView(model, this);
    m_column->addWidget(m_header);
    m_divider = divider(this);
    m_column->addWidget(m_divider);

    m_waiting = new QWidget(this);
    auto* waiting = new QHBoxLayout(m_waiting);
    waiting->setContentsMargins(0, 0, 0, 0);
    waiting->setSpacing(6);
    const int side = QFontMetrics(looks::font(TextStyle::Callout)).height();
    looks::decorate(m_waiting, waiting,
                    looks::symbol(QStringLiteral("exclamationmark.bubble.fill"),
                                  looks::color(SystemColor::Orange, palette())),
                    QSize(side, side));
    m_waitingText = new QLabel(m_waiting);
    m_waitingText->setTextFormat(Qt::PlainText);
    looks::style(m_waitingText, TextStyle::Callout, SystemColor::Orange);
    waiting->addWidget(m_waitingText, 1);
    m_column->addWidget(m_waiting);

    m_notice = new WrappedLabel(this); // plain text: the notice may quote a reason from elsewhere
    looks::style(m_notice, TextStyle::Caption, SystemColor::Secondary);
    m_column->addWidget(m_notice);

    connect(model, &AppModel::statusChanged, this, &MenuView::rebuild);
    connect(model, &AppModel::pairingChanged, this, &MenuView::rebuild);
    connect(model, &AppModel::sessionsChanged, this, &MenuView::updateSessions);
    connect(model, &AppModel::noticeChanged, this, &MenuView::updateNotice);
    // Any other change also rebuilds the pairing view, which picks its button row then.
    connect(model, &AppModel::changed, this, [this] {
        if (m_pairing && m_model->pairing())
            m_pairing->setPairing(*m_model->pairing());
    });
    rebuild();
    updateNotice();
}

QString MenuView::waitingText(qint64 pending)
{
    const QString count = QString::number(pending);
    return pending == 1 ? tr("%1 prompt waiting for an answer").arg(count)
                        : tr("%1 prompts waiting for an answer").arg(count);
}

void MenuView::rebuild()
{
    updateWaiting();
    const auto& status = m_model->status();
    const auto& pairing = m_model->pairing();
    enum class Body {
        NotRunning,
        Pairing,
        Lists
    } want = !status   ? Body::NotRunning
             : pairing ? Body::Pairing
                       : Body::Lists;
    const Body have = m_notRunning ? Body::NotRunning : m_pairing ? Body::Pairing : Body::Lists;
    if (m_body && want == have) {
        if (m_pairing)
            m_pairing->setPairing(*pairing);
        return;
    }

    // A different body: the old views go, with whatever the user had unfolded or selected.
    const bool switched = m_body != nullptr;
    delete m_body;
    m_notRunning = nullptr;
    m_pairing = nullptr;
    m_phones = nullptr;
    m_sessions = nullptr;

    m_body = new QWidget(this);
    auto* column = new QVBoxLayout(m_body);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(kSpacing);
    switch (want) {
    case Body::NotRunning:
        m_notRunning = new NotRunningView(m_model, m_body);
        column->addWidget(m_notRunning);
        break;
    case Body::Pairing:
        m_pairing = new PairingView(m_model, *pairing, m_body);
        column->addWidget(m_pairing);
        break;
    case Body::Lists: {
        m_phones = new PhonesView(m_model, m_body);
        column->addWidget(m_phones);
        column->addWidget(divider(m_body));
        column->addWidget(new SectionTitle(tr("Sessions"), m_body));
        m_sessions = new SessionsView(m_body);
        m_sessions->setMaximumListHeight(kMaxSessionsHeight);
        column->addWidget(m_sessions);
        // The list is the focus stop after "Pair a Phone…", also once new rows joined the chain.
        const auto linkFocus = [this] { setTabOrder(m_phones->pairButton(), m_sessions); };
        connect(m_phones, &PhonesView::rowsChanged, this, linkFocus);
        linkFocus();
        updateSessions();
        break;
    }
    }
    m_column->insertWidget(m_column->indexOf(m_notice), m_body);
    m_body->stackUnder(m_notice); // screen readers read the children in their stacking order
    m_body->show();
    if (!switched)
        return;
    // The focus was in the views just deleted, or is better in the new one: keyboard and screen
    // reader users go on from its first control that matters, not from nowhere.
    if (QWidget* target = m_notRunning ? m_notRunning->startButton()
                          : m_pairing  ? m_pairing->focusTarget()
                                       : m_phones->pairButton())
        target->setFocus(Qt::OtherFocusReason);
    if (m_notRunning)
        access::announce(m_notRunning, HeaderView::subtitleFor(std::nullopt));
}

void MenuView::updateWaiting()
{
    const auto& status = m_model->status();
    const qint64 pending = status ? status->pending : 0;
    const bool show = pending > 0;
    if (show)
        m_waitingText->setText(waitingText(pending));
    m_waiting->setVisible(show);
    // Said when the count changes, not on every refresh that repeats it.
    if (show && pending != m_announcedPending)
        access::announce(m_waitingText, m_waitingText->text());
    m_announcedPending = pending;
}

void MenuView::updateNotice()
{
    const auto& notice = m_model->notice();
    m_notice->setText(notice ? *notice : QString());
    m_notice->setVisible(notice.has_value());
    // Every outcome is said, also one worded like the last ("Pairing code copied." twice).
    if (notice)
        access::announce(m_notice, *notice);
}

void MenuView::updateSessions()
{
    if (m_sessions)
        m_sessions->setSessions(m_model->sessions());
}

int MenuView::availableHeight() const
{
    const QWidget* frame = window();
    const QScreen* screen = frame->screen();
    if (!screen)
        return kUnbounded;
    // A window's title bar comes out of the same height.
    const int decoration =
        frame->isVisible() ? std::max(0, frame->frameGeometry().height() - frame->height()) : 0;
    return screen->availableGeometry().height() - decoration;
}

void MenuView::fitToScreen()
{
    if (!m_phones || !m_sessions)
        return;
    const int width = kWidth - 2 * kPadding;
    const int phonesShown = m_phones->rowsHeight();
    const int sessionsShown = m_sessions->heightForWidth(width);
    const int rest = heightForWidth(kWidth) - phonesShown - sessionsShown;
    const int room = availableHeight() - rest;

    // Short of room, the phones' rows give way first, down to two rows; then the sessions list,
    // down to one. Otherwise both take what they need, the list up to its usual limit.
    const int phonesNatural = m_phones->rowsNaturalHeight(width);
    const int sessionsNatural = std::min(m_sessions->contentHeight(width), kMaxSessionsHeight);
    int phonesLimit = kUnbounded;
    int sessionsLimit = kMaxSessionsHeight;
    if (phonesNatural + sessionsNatural > room) {
        phonesLimit = std::max(m_phones->rowsMinimumHeight(), room - sessionsNatural);
        if (phonesLimit + sessionsNatural > room)
            sessionsLimit = std::max(m_sessions->minimumListHeight(), room - phonesLimit);
    }
    m_phones->setRowsHeightLimit(phonesLimit);
    m_sessions->setMaximumListHeight(sessionsLimit);
}

QString MenuView::waitingLineText() const
{
    return m_waiting->isHidden() ? QString() : m_waitingText->text();
}

QStringList MenuView::shownParts() const
{
    QStringList parts{QStringLiteral("header"), QStringLiteral("divider")};
    if (!m_waiting->isHidden())
        parts << QStringLiteral("waiting");
    if (m_notRunning)
        parts << QStringLiteral("notRunning");
    if (m_pairing)
        parts << QStringLiteral("pairing");
    if (m_phones)
        parts << QStringLiteral("phones") << QStringLiteral("sessionsTitle")
              << QStringLiteral("sessions");
    if (!m_notice->isHidden())
        parts << QStringLiteral("notice");
    return parts;
}

int MenuView::heightForWidth(int width) const
{
    // Without wrapped text in it the layout has no height-for-width of its own.
    return m_column->hasHeightForWidth() ? m_column->totalHeightForWidth(width)
                                         : m_column->totalSizeHint().height();
}

QSize MenuView::sizeHint() const
{
    return {kWidth, heightForWidth(kWidth)};
}

void MenuView::refit()
{
    m_column->invalidate();
}

bool MenuView::event(QEvent* event)
{
    // Every change of what the content needs ends here as a layout request: an unfolded row, a
    // code that expired, a phone that left, a notice. Fit to the screen, then let the window fit.
    if (event->type() != QEvent::LayoutRequest)
        return QWidget::event(event);
    // The parts' own layouts first, so that the heights added up below are current ones.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
    fitToScreen();
    const bool done = QWidget::event(event);
    Q_EMIT contentChanged();
    return done;
}

void MenuView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    // On another screen, or a screen whose panels changed, the room is not the same.
    if (QWindow* handle = window()->windowHandle()) {
        connect(handle, &QWindow::screenChanged, this, &MenuView::refit, Qt::UniqueConnection);
    }
    if (event->spontaneous())
        return;
    // Each opening reads the login item afresh and asks for the full picture at once.
    m_header->reloadLoginItem();
    m_model->refresh(true);
}

} // namespace harkline::ui
