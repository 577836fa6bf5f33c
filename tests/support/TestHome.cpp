#include "TestHome.h"

#include <QDir>
#include <stdexcept>

namespace harkline::test {

TestHome::TestHome() : oldHome_(qgetenv("HOME"))
{
    if (!dir_.isValid())
        throw std::runtime_error("no temporary directory for the test home");
    const QString home = dir_.path();
    qputenv("HOME", home.toUtf8());
    qputenv("XDG_CONFIG_HOME", (home + "/.config").toUtf8());
    qputenv("XDG_STATE_HOME", (home + "/.local/state").toUtf8());
    qputenv("XDG_DATA_HOME", (home + "/.local/share").toUtf8());
    QDir().mkpath(home + "/.local/state/harkline");
}

TestHome::~TestHome()
{
    qputenv("HOME", oldHome_);
}

} // namespace harkline::test
