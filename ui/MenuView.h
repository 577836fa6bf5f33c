#pragma once

#include <QWidget>

class QLabel;
class QVBoxLayout;

namespace harkline {
class AppModel;
}

namespace harkline::ui {

namespace access {
class Announcer;
}
class HeaderView;
class NotRunningView;
class PairingView;
class PhonesView;
class SectionTitle;
class SessionsView;

// The panel's content, rebuilt from the model: the header, then either the not-running view, the
// pairing view, or the phones and sessions; the waiting-prompts line above them, the notice at
// the foot. Views that leave the panel are destroyed, so their local state (an unfolded session,
// a phone under confirmation) starts afresh when they return.
//
// Its height is what the content needs, but never more than its screen offers: then the phones'
// rows give way first (down to two rows) and the sessions list next, both scrolling.
class MenuView : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kWidth = 340;
    static constexpr int kPadding = 14;
    static constexpr int kSpacing = 10;
    static constexpr int kMaxSessionsHeight = 300;

    explicit MenuView(AppModel* model, QWidget* parent = nullptr);

    // The waiting-prompts line for a count above 0: "1 prompt waiting for an answer", "2 prompts
    // …".
    static QString waitingText(qint64 pending);

    HeaderView* header() const { return m_header; }
    // The current child views; null while they are not part of the panel.
    NotRunningView* notRunningView() const { return m_notRunning; }
    PairingView* pairingView() const { return m_pairing; }
    PhonesView* phonesView() const { return m_phones; }
    SessionsView* sessionsView() const { return m_sessions; }
    QWidget* waitingLine() const { return m_waiting; }
    QString waitingLineText() const;
    QLabel* noticeLine() const { return m_notice; }
    // What screen readers were last told.
    access::Announcer* announcer() const { return m_announcer; }

    // Names of the parts shown, top to bottom, for tests: "header", "divider", "waiting",
    // "notRunning", "pairing", "phones", "sessionsTitle", "sessions", "notice".
    QStringList shownParts() const;

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;

    // The height the panel may take on its screen (the window's frame left out).
    int availableHeight() const;

signals:
    // The content's height may have changed; the window holding it should fit it again.
    void contentChanged();

protected:
    bool event(QEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void rebuild();
    void updateWaiting();
    void updateNotice();
    void updateSessions();
    void fitToScreen();
    void refit();

    AppModel* m_model;
    access::Announcer* m_announcer; // first: the panel's accessible children end with it
    qint64 m_announcedPending = 0;
    QVBoxLayout* m_column;
    HeaderView* m_header;
    QWidget* m_divider;
    QWidget* m_waiting;
    QLabel* m_waitingText;
    QWidget* m_body = nullptr; // the part between the waiting line and the notice
    NotRunningView* m_notRunning = nullptr;
    PairingView* m_pairing = nullptr;
    PhonesView* m_phones = nullptr;
    SessionsView* m_sessions = nullptr;
    QLabel* m_notice;
};

} // namespace harkline::ui
