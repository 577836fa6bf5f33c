#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

namespace harkline {
class AppModel;
}

namespace harkline::ui {

// Shown while the daemon does not answer: says so, and offers to start it or to read its log.
class NotRunningView : public QWidget
{
    Q_OBJECT

public:
    explicit NotRunningView(AppModel* model, QWidget* parent = nullptr);

    QLabel* message() const { return m_message; }
    QPushButton* startButton() const { return m_start; }
    QPushButton* openLogButton() const { return m_openLog; }

private:
    QLabel* m_message;
    QPushButton* m_start;
    QPushButton* m_openLog;
};

} // namespace harkline::ui
