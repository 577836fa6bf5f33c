#pragma once

#include "Records.h"

#include <QWidget>

class QLabel;
class QPushButton;
class QToolButton;

namespace harkline::ui {

class ElidedLabel;

// One paired phone: its name, when it was paired, and either the trash button or, while its
// unpairing is being confirmed, "Cancel" and "Remove".
class PhoneRow : public QWidget
{
    Q_OBJECT

public:
    explicit PhoneRow(QWidget* parent = nullptr);

    void setDevice(const PairedDevice& device);
    const PairedDevice& device() const { return m_device; }
    void setConfirming(bool on);
    bool confirming() const { return m_confirming; }
    // Recomputes "Paired …" against the current time.
    void refreshTime();

    QString nameText() const;
    QString pairedText() const;
    QToolButton* trashButton() const { return m_trash; }
    QPushButton* cancelButton() const { return m_cancel; }
    QPushButton* removeButton() const { return m_remove; }

signals:
    void trashClicked();
    void cancelClicked();
    void removeClicked();

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    PairedDevice m_device;
    bool m_confirming = false;
    ElidedLabel* m_name;
    QLabel* m_paired;
    QToolButton* m_trash;
    QPushButton* m_cancel;
    QPushButton* m_remove;
};

} // namespace harkline::ui
