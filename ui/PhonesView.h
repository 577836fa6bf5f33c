#pragma once

#include "Records.h"

#include <QWidget>

#include <optional>
#include <string>
#include <vector>

class QLabel;
class QPushButton;
class QScrollArea;
class QVBoxLayout;

namespace harkline {
class AppModel;
}

namespace harkline::ui {

class PhoneRow;

// The paired phones, each with an in-place confirmation before it is unpaired, and the button
// that starts pairing a new one. The rows scroll once they pass the height the panel can give
// them (setRowsHeightLimit), so a long list never pushes the button off the screen.
class PhonesView : public QWidget
{
    Q_OBJECT

public:
    explicit PhonesView(AppModel* model, QWidget* parent = nullptr);

    // Redraws from the model's current list; rows are kept by phone id.
    void update();

    // The id of the phone whose unpairing is being confirmed.
    const std::optional<std::string>& removing() const { return m_removing; }

    QLabel* emptyText() const { return m_empty; }
    QPushButton* pairButton() const { return m_pair; }
    int rowCount() const { return int(m_rows.size()); }
    // The row of the phone with that id, or null.
    PhoneRow* row(const std::string& id) const;
    PhoneRow* rowAt(int index) const { return m_rows.at(std::size_t(index)); }

    // The most the rows take before they scroll; and what they would take at `width` unclipped.
    void setRowsHeightLimit(int height);
    int rowsHeight() const;
    int rowsNaturalHeight(int width) const;
    // The least the rows should keep when space is short: two rows, or what there is.
    int rowsMinimumHeight() const;
    QScrollArea* rowsArea() const { return m_rowsArea; }

signals:
    // Rows came, went or moved; what follows "Pair a Phone…" in the focus chain may need a link.
    void rowsChanged();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void setRemoving(std::optional<std::string> id);
    void fitRows();

    AppModel* m_model;
    QVBoxLayout* m_column;
    QLabel* m_empty;
    QScrollArea* m_rowsArea;
    QWidget* m_rowBox;
    QVBoxLayout* m_rowColumn;
    int m_rowsLimit = 1 << 20;
    std::vector<PhoneRow*> m_rows;
    QPushButton* m_pair;
    std::optional<std::string> m_removing;
};

} // namespace harkline::ui
