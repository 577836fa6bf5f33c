#pragma once

#include "Looks.h"
#include "Records.h"

#include <QWidget>

namespace harkline::ui {

// One Claude Code session: state symbol, title, a detail line and a state badge; unfolded, also
// the session's last text. It draws itself (no child widgets), so a list of a thousand rows
// stays cheap to build and to update, and the time in the detail line is computed at each
// drawing.
class SessionRow : public QWidget
{
    Q_OBJECT

public:
    struct Look
    {
        QString label;
        QString symbol;
        SystemColor color;
    };
    // How a state shows: "working", "waiting" and "ended" (exactly so); anything else is finished.
    static Look lookOf(const std::string& state);

    explicit SessionRow(QWidget* parent = nullptr);

    // True when anything on screen changed.
    bool setSession(const ClaudeSession& session);
    const ClaudeSession& session() const { return m_session; }
    void setExpanded(bool on);
    bool expanded() const { return m_expanded; }

    // What the row shows, as plain text.
    QString titleText() const;
    QString detailText() const; // against the current time
    QString badgeText() const { return m_look.label; }
    // The last text when the row shows it (unfolded and not empty), else empty.
    QString shownLastText() const;

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;

signals:
    void clicked();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    QRect textColumn(int width) const;
    QSize badgeSize() const;
    void updateAccessibleText();

    ClaudeSession m_session;
    Look m_look;
    bool m_expanded = false;
    QFont m_titleFont;
    QFont m_detailFont;
    QFont m_badgeFont;
};

} // namespace harkline::ui
