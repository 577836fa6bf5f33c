#include "PairingView.h"

#include "Access.h"
#include "AppModel.h"
#include "DefaultButton.h"
#include "DisplayText.h"
#include "Looks.h"
#include "WrappedText.h"

#include <QApplication>
#include <QBoxLayout>
#include <QDateTime>
#include <QKeyEvent>
#include <QLabel>
#include <QLocale>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>

#include <cmath>
#include <limits>

namespace harkline::ui {

namespace {

constexpr int kCodeSide = 230;
constexpr int kQuietBorder = 10;

// The QR code on a white rounded square. Modules are scaled without smoothing so their edges
// stay sharp for the phone's camera.
class QrSquare final : public QWidget
{
public:
    explicit QrSquare(QWidget* parent) : QWidget(parent)
    {
        access::setRole(this, QAccessible::Graphic);
        setFixedSize(kCodeSide + 2 * kQuietBorder, kCodeSide + 2 * kQuietBorder);
    }
    void setImage(const QImage& image)
    {
        m_image = image;
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        QPainterPath square;
        square.addRoundedRect(QRectF(rect()), 8, 8);
        painter.fillPath(square, Qt::white);
        painter.setRenderHint(QPainter::SmoothPixmapTransform, false);
        painter.setRenderHint(QPainter::Antialiasing, false);
        painter.drawImage(QRect(kQuietBorder, kQuietBorder, kCodeSide, kCodeSide), m_image);
    }

private:
    QImage m_image;
};

QLabel* plainLabel(QWidget* parent, TextStyle style, SystemColor color = SystemColor::Primary)
{
    auto* label = new WrappedLabel(parent);
    label->setAlignment(Qt::AlignHCenter);
    looks::style(label, style, color);
    return label;
}

} // namespace

PairingView::PairingView(AppModel* model, const Pairing& pairing, QWidget* parent)
    : QWidget(parent), m_model(model),
      m_clock([] { return DaemonTime(std::chrono::system_clock::now()); })
{
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setSpacing(8);

    // Offer state: the countdown block, then the button row.
    m_offer = new QWidget(this);
    auto* offer = new QVBoxLayout(m_offer);
    offer->setContentsMargins(0, 0, 0, 0);
    offer->setSpacing(8);

    m_code = new QWidget(m_offer);
    auto* code = new QVBoxLayout(m_code);
    code->setContentsMargins(0, 0, 0, 0);
    code->setSpacing(8);
    QLabel* scan = plainLabel(m_code, TextStyle::Headline);
    scan->setText(tr("Scan with the harkline app"));
    m_qr = new QrSquare(m_code);
    m_qr->setAccessibleName(tr("Pairing code"));
    m_qr->setAccessibleDescription(tr("QR code to scan with the harkline app"));
    m_countdown = plainLabel(m_code, TextStyle::Caption, SystemColor::Secondary);
    code->addWidget(scan);
    code->addWidget(m_qr, 0, Qt::AlignHCenter);
    code->addWidget(m_countdown);
    offer->addWidget(m_code);

    m_expired = plainLabel(m_offer, TextStyle::Headline);
    m_expired->setText(tr("This code has expired."));
    offer->addWidget(m_expired);

    auto* row = new QHBoxLayout;
    m_cancel = new QPushButton(tr("Cancel"), m_offer);
    m_cancel->setAutoDefault(false);
    m_copy = new QPushButton(tr("Copy Code"), m_offer);
    m_copy->setAutoDefault(false);
    m_copy->setToolTip(tr("For \"Paste code instead\" in the app"));
    m_newCode = new QPushButton(tr("New Code"), m_offer);
    makeDefaultButton(m_newCode);
    row->addStretch(1);
    row->addWidget(m_cancel);
    row->addWidget(m_copy);
    row->addWidget(m_newCode);
    row->addStretch(1);
    offer->addLayout(row);
    outer->addWidget(m_offer);

    // Paired state.
    m_paired = new QWidget(this);
    auto* paired = new QVBoxLayout(m_paired);
    paired->setContentsMargins(0, 0, 0, 0);
    paired->setSpacing(8);
    auto* check = new QLabel(m_paired);
    const QIcon checkIcon = looks::symbol(QStringLiteral("checkmark.circle.fill"),
                                          looks::color(SystemColor::Green, palette()));
    const int side = QFontMetrics(looks::font(TextStyle::Body)).height() * 40 / 13;
    check->setPixmap(checkIcon.pixmap(QSize(side, side), devicePixelRatioF()));
    check->setAccessibleName(tr("Paired"));
    m_pairedWith = plainLabel(m_paired, TextStyle::Headline);
    m_done = new QPushButton(tr("Done"), m_paired);
    makeDefaultButton(m_done);
    paired->addWidget(check, 0, Qt::AlignHCenter);
    paired->addWidget(m_pairedWith);
    paired->addWidget(m_done, 0, Qt::AlignHCenter);
    outer->addWidget(m_paired);

    connect(m_cancel, &QPushButton::clicked, model, &AppModel::stopPairing);
    connect(m_done, &QPushButton::clicked, model, &AppModel::stopPairing);
    connect(m_copy, &QPushButton::clicked, model, &AppModel::copyPairingCode);
    connect(m_newCode, &QPushButton::clicked, model, &AppModel::startPairing);

    m_tick.setInterval(1000);
    connect(&m_tick, &QTimer::timeout, this, &PairingView::updateCountdown);

    setPairing(pairing);
}

void PairingView::setClock(Clock clock)
{
    m_clock = std::move(clock);
    setPairing(m_pairing);
}

qint64 PairingView::remainingSeconds() const
{
    const double left = std::trunc((m_pairing.expires - m_clock()).count());
    // A lifetime too large for 64 bits (only from an absurd reply) counts as the largest one.
    if (!(left < 9.2e18))
        return std::numeric_limits<qint64>::max();
    if (!(left > -9.2e18))
        return std::numeric_limits<qint64>::min();
    return qint64(left);
}

QPushButton* PairingView::focusTarget() const
{
    if (m_pairing.pairedWith)
        return m_done;
    return m_copy->isHidden() ? m_newCode : m_copy;
}

void PairingView::setPairing(const Pairing& pairing)
{
    const bool wasPaired = m_pairing.pairedWith.has_value();
    // A button that leaves hands the focus to the one that takes its place.
    const bool focusHere = isAncestorOf(QApplication::focusWidget());
    m_pairing = pairing;
    const bool paired = pairing.pairedWith.has_value();
    if (paired) {
        m_pairedWith->setText(tr("Paired with %1").arg(daemonText(*pairing.pairedWith)));
        m_paired->setVisible(true);
        if (focusHere)
            m_done->setFocus(Qt::OtherFocusReason);
        m_offer->setVisible(false);
        if (!wasPaired)
            access::announce(m_pairedWith, m_pairedWith->text());
        return;
    }
    m_offer->setVisible(true);
    m_paired->setVisible(false);
    if (pairing.image.cacheKey() != m_shownImage) {
        m_shownImage = pairing.image.cacheKey();
        static_cast<QrSquare*>(m_qr)->setImage(pairing.image);
        // Said once per code: the countdown itself moves only on screen.
        const QDateTime expiry =
            QDateTime::fromMSecsSinceEpoch(std::chrono::duration_cast<std::chrono::milliseconds>(
                                               pairing.expires.time_since_epoch())
                                               .count());
        m_countdown->setAccessibleName(
            tr("Pair PC → scan. Expires at %1.")
                .arg(QLocale().toString(expiry.time(), QLocale::ShortFormat)));
    }
    // The second button is chosen now, not at each countdown step: it changes when the view is
    // next rebuilt after the offer lapses.
    const bool open = pairing.expires > m_clock();
    const bool copyHadFocus = m_copy->hasFocus();
    m_copy->setVisible(open);
    m_newCode->setVisible(!open);
    if (copyHadFocus && !open)
        m_newCode->setFocus(Qt::OtherFocusReason);
    updateCountdown();
}

void PairingView::keyPressEvent(QKeyEvent* event)
{
    // Escape leaves the pairing view (as Cancel or Done) before it closes the panel.
    if (event->key() == Qt::Key_Escape) {
        m_model->stopPairing();
        return;
    }
    QWidget::keyPressEvent(event);
}

void PairingView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    // The countdown moves only while someone can see it.
    updateCountdown();
    m_tick.start();
}

void PairingView::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    m_tick.stop();
}

void PairingView::updateCountdown()
{
    if (m_pairing.pairedWith)
        return;
    const qint64 remaining = remainingSeconds();
    const bool live = remaining >= 1 && !m_pairing.image.isNull();
    m_code->setVisible(live);
    m_expired->setVisible(!live);
    if (m_live && *m_live && !live)
        access::announce(m_expired, m_expired->text());
    m_live = live;
    if (live)
        m_countdown->setText(
            tr("Pair PC → scan. Expires in %1:%2.")
                .arg(QString::number(remaining / 60),
                     QStringLiteral("%1").arg(int(remaining % 60), 2, 10, QLatin1Char('0'))));
}

bool PairingView::showsCode() const
{
    return !m_pairing.pairedWith && !m_code->isHidden();
}

bool PairingView::showsExpired() const
{
    return !m_pairing.pairedWith && !m_expired->isHidden();
}

bool PairingView::showsPaired() const
{
    return !m_paired->isHidden();
}

QString PairingView::countdownLine() const
{
    return m_countdown->text();
}

QString PairingView::pairedLine() const
{
    return m_pairedWith->text();
}

} // namespace harkline::ui
