#pragma once

#include "Records.h"

#include <QWidget>

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

class QLabel;

namespace harkline::ui {

class SessionRow;

// The Claude Code sessions, one row each in the model's order; a click on a row unfolds it (and
// folds any other). Rows are kept by session id, so an update that changes nothing costs a
// comparison per row, and the unfolded row stays unfolded across reloads and reorderings.
class SessionsView : public QWidget
{
    Q_OBJECT

public:
    explicit SessionsView(QWidget* parent = nullptr);

    void setSessions(const std::vector<ClaudeSession>& sessions);

    // The id of the unfolded session, kept even while no row has it.
    const std::optional<std::string>& expanded() const { return m_expanded; }
    void toggle(const std::string& id);

    QLabel* emptyText() const { return m_empty; }
    int rowCount() const { return int(m_order.size()); }
    SessionRow* rowAt(int index) const { return m_order.at(std::size_t(index)); }
    SessionRow* row(const std::string& id) const;

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void resizeEvent(QResizeEvent* event) override;
    bool event(QEvent* event) override;

private:
    void relayout();

    QLabel* m_empty;
    std::vector<SessionRow*> m_order;
    std::unordered_map<std::string, SessionRow*> m_byId;
    std::optional<std::string> m_expanded;
    bool m_layoutPending = false;
};

} // namespace harkline::ui
