#pragma once

#include "Pairing.h"

#include <QTimer>
#include <QWidget>

#include <functional>
#include <optional>

class QLabel;
class QPushButton;

namespace harkline {
class AppModel;
}

namespace harkline::ui {

// The open pairing offer: the QR code to scan with a per-second countdown, or "This code has
// expired."; and once a phone has paired, whose phone it was. Buttons call the model's pairing
// operations; the view itself keeps no state beyond what the offer says.
class PairingView : public QWidget
{
    Q_OBJECT

public:
    using Clock = std::function<DaemonTime()>;

    PairingView(AppModel* model, const Pairing& pairing, QWidget* parent = nullptr);

    // Rebuilds from the offer: paired or not, and which second button the row holds. The
    // countdown block also redraws on its own, once a second.
    void setPairing(const Pairing& pairing);

    // For tests: the clock the countdown and the button row read.
    void setClock(Clock clock);

    // What is on screen, for tests and screen readers.
    bool showsCode() const;
    bool showsExpired() const;
    bool showsPaired() const;
    QString countdownLine() const;
    QString pairedLine() const;
    QPushButton* cancelButton() const { return m_cancel; }
    QPushButton* copyButton() const { return m_copy; }
    QPushButton* newCodeButton() const { return m_newCode; }
    QPushButton* doneButton() const { return m_done; }
    // Where the keyboard starts in this view: "Done", or the offer's main button.
    QPushButton* focusTarget() const;

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void updateCountdown();
    qint64 remainingSeconds() const;

    AppModel* m_model;
    Pairing m_pairing;
    Clock m_clock;
    QTimer m_tick;
    std::optional<bool> m_live; // whether the code showed at the last countdown step
    qint64 m_shownImage = -1;

    QWidget* m_offer; // the countdown block and the button row
    QWidget* m_code;  // headline, QR code, countdown line
    QLabel* m_countdown;
    QWidget* m_qr;
    QLabel* m_expired;
    QPushButton* m_cancel;
    QPushButton* m_copy;
    QPushButton* m_newCode;
    QWidget* m_paired;
    QLabel* m_pairedWith;
    QPushButton* m_done;
};

} // namespace harkline::ui
