// A tray host for the footprint runs: the test StatusNotifierWatcher on the session bus, so both
// programs measured show their icons as they would on a desktop.
#include "SniWatcher.h"

#include <QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    harkline::test::SniWatcher watcher;
    if (!watcher.publish(QDBusConnection::sessionBus()))
        return 1;
    return app.exec();
}
