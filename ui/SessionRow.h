#pragma once

#include "Looks.h"
#include "Records.h"

#include <QFont>
#include <QString>

class QPainter;

namespace harkline::ui {

class WrappedText;

// How one Claude Code session shows in the list: state symbol, title, a detail line and a state
// badge; unfolded, also its last text. The texts come from the daemon: they are made inert once,
// when the row is made, and cut to what one line can show, so that neither a control character
// nor a 100,000-character title costs anything at each paint.
class SessionRow
{
public:
    struct Look
    {
        QString label;
        QString symbol;
        SystemColor color;
    };
    // How a state shows: "working", "waiting" and "ended" (exactly so); anything else is finished.
    static Look lookOf(const std::string& state);

    // Fonts and sizes shared by every row.
    struct Metrics
    {
        QFont title;
        QFont detail;
        QFont badge;
        int titleHeight = 0;
        int detailHeight = 0;
        int badgeHeight = 0;

        static Metrics current(); // from the application font
        int foldedHeight() const;
        // The height of a row whose last text takes `textHeight` (0: folded).
        int height(int textHeight) const;
    };

    explicit SessionRow(const ClaudeSession& session);

    const Look& look() const { return m_look; }
    const QString& titleText() const { return m_title; }
    QString detailText(DaemonTime now) const;
    QString detailText() const; // against the current time
    const QString& badgeText() const { return m_look.label; }

    // The last text as it is shown unfolded: inert, its line breaks kept. Made on demand: it may
    // be long.
    static QString lastTextOf(const ClaudeSession& session);

    int badgeWidth(const Metrics& metrics) const;
    // The width left to the title, detail and last text in a row `rowWidth` wide.
    int textWidth(const Metrics& metrics, int rowWidth) const;

    // Draws the row in `rect`, as far as it meets `exposed`; `lastText` is the unfolded row's
    // laid-out last text, or null.
    void paint(QPainter& painter, const QRect& rect, const QRect& exposed, const Metrics& metrics,
               const QPalette& palette, const WrappedText* lastText) const;

private:
    Look m_look;
    QString m_title;   // one line
    QString m_project; // one line, isolated: it is followed by the time
    bool m_listening;
    qint64 m_queued;
    DaemonTime m_lastActive;
};

} // namespace harkline::ui
