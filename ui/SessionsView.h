#pragma once

#include "Records.h"
#include "SessionRow.h"
#include "WrappedText.h"

#include <QAbstractScrollArea>

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace harkline::ui {

// The Claude Code sessions, one row each in the model's order; a click on a row, or Return,
// Enter or Space on the current one, unfolds it to show its last text (and folds any other).
// One focus stop for the whole list: the arrow keys, Home, End, PageUp and PageDown move between
// rows and scroll the current one into view. As tall as its rows up to a limit, then it scrolls.
//
// Only the rows in view are drawn, and every folded row has the same height, so where a row
// stands is arithmetic: a list of 50,000 sessions costs a copy and a comparison when it changes,
// never a layout of every row. The unfolded row's last text is laid out once per text and width.
class SessionsView : public QAbstractScrollArea
{
    Q_OBJECT

public:
    explicit SessionsView(QWidget* parent = nullptr);
    ~SessionsView() override;

    void setSessions(const std::vector<ClaudeSession>& sessions);
    int count() const { return int(m_sessions.size()); }
    const ClaudeSession& session(int index) const { return m_sessions.at(std::size_t(index)); }
    // How the row at `index` shows (its texts as drawn).
    SessionRow row(int index) const;

    // The id of the unfolded session, kept even while no row has it.
    const std::optional<std::string>& expanded() const { return m_expanded; }
    void toggle(const std::string& id);
    // The last text the row at `index` shows: empty unless unfolded with a last text.
    QString shownLastText(int index) const;
    bool showsLastText(int index) const;

    // The row the keyboard acts on, or -1.
    int currentRow() const { return m_current; }
    void setCurrentRow(int index);
    // The row's rectangle in the viewport (scrolled), and the row at a viewport point (-1: none).
    QRect rowRect(int index) const;
    int rowAt(const QPoint& viewportPoint) const;

    // "No Claude Code sessions yet. …" while the list is empty, else empty.
    QString shownEmptyText() const;

    // The most the list takes before it scrolls (300 unless the screen is short).
    void setMaximumListHeight(int height);
    int maximumListHeight() const { return m_maxHeight; }
    // What all rows take at `width`, unclipped.
    int contentHeight(int width) const;
    // The least the list should be given when space is short: one folded row.
    int minimumListHeight() const;

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    int rowTop(int index) const;    // in the content, unscrolled
    int rowHeight(int index) const; // at the viewport's width
    int indexAtContentY(int y) const;
    int unfoldedExtra(int width) const;
    const SessionRow& cachedRow(int index) const;
    void findMarkedRows();
    void relayout();
    void ensureVisible(int index);
    void accessibleFocus();

    std::vector<ClaudeSession> m_sessions;
    std::optional<std::string> m_expanded;
    int m_expandedIndex = -1; // the unfolded row when it has a last text to show, else -1
    std::optional<std::string> m_currentId;
    int m_current = -1;
    int m_pressed = -1;
    int m_maxHeight = 300;
    SessionRow::Metrics m_metrics;
    // Texts of the rows drawn since the list last changed: a handful, rebuilt on demand.
    mutable std::unordered_map<int, SessionRow> m_rows;
    std::string m_lastTextSource; // the unfolded row's last text as the daemon sent it
    WrappedText m_lastText;
    WrappedText m_empty;
};

} // namespace harkline::ui
