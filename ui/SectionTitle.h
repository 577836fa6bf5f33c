#pragma once

#include <QLabel>

namespace harkline::ui {

// A small dimmed caption above a section ("SESSIONS", "PHONES"): the text in capitals,
// caption-2 size, semibold.
class SectionTitle : public QLabel
{
    Q_OBJECT

public:
    explicit SectionTitle(const QString& text, QWidget* parent = nullptr);

    void setTitle(const QString& text);
    QString title() const { return m_title; } // as given, before the capitals

protected:
    void changeEvent(QEvent* event) override;

private:
    QString m_title;
};

} // namespace harkline::ui
