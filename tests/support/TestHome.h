#pragma once

#include <QString>
#include <QTemporaryDir>

namespace harkline::test {

// Points HOME and the XDG folders at a fresh temporary directory for the life of the object,
// so a test never meets the real daemon, socket or configuration.
class TestHome
{
public:
    TestHome();
    ~TestHome();
    QString path() const { return dir_.path(); }

private:
    QTemporaryDir dir_;
    QByteArray oldHome_;
};

} // namespace harkline::test
