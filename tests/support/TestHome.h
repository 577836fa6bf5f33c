#pragma once

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <stdexcept>

namespace harkline::test {

// A file's bytes, or "(missing)" when it cannot be read.
inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(missing)");
}

// Points HOME and the XDG folders at a fresh temporary directory for the life of the object,
// so a test never meets the real daemon, socket or configuration.
class TestHome
{
public:
    TestHome() : oldHome_(qgetenv("HOME"))
    {
        const QString home =
            dir_.isValid() ? dir_.path() : throw std::runtime_error("no test home");
        qputenv("HOME", home.toUtf8());
        qputenv("XDG_CONFIG_HOME", (home + "/.config").toUtf8());
        qputenv("XDG_STATE_HOME", (home + "/.local/state").toUtf8());
        qputenv("XDG_DATA_HOME", (home + "/.local/share").toUtf8());
        QDir().mkpath(home + "/.local/state/harkline");
    }
    ~TestHome() { qputenv("HOME", oldHome_); }
    QString path() const { return dir_.path(); }

private:
    QTemporaryDir dir_;
    QByteArray oldHome_;
};

} // namespace harkline::test
