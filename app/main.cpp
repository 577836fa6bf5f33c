// harkline-menubar: the tray companion of the harkline daemon.

#include "AppModel.h"
#include "Companion.h"
#include "LoginItem.h"
#include "SingleInstance.h"

#include <QApplication>
#include <QSettings>

#include <cstdio>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("harkline"));
    QApplication::setApplicationName(QStringLiteral("harkline-menubar"));
    QApplication::setApplicationDisplayName(QStringLiteral("harkline"));
    QApplication::setDesktopFileName(QStringLiteral("harkline-menubar"));
    // The panel closing is not the companion ending; only "Quit" ends it.
    QApplication::setQuitOnLastWindowClosed(false);

    harkline::app::SingleInstance instance;
    switch (instance.claim()) {
    case harkline::app::SingleInstance::Role::Secondary:
        return 0;
    case harkline::app::SingleInstance::Role::Unreachable:
        std::fprintf(stderr,
                     "harkline-menubar: another instance is running but does not answer "
                     "(%s)\n",
                     qPrintable(instance.socketPath()));
        return 1;
    case harkline::app::SingleInstance::Role::Primary:
        break;
    }

    {
        QSettings settings;
        harkline::XdgAutostartLoginItem loginItem;
        harkline::openAtLoginOnFirstLaunch(settings, loginItem);
    }

    harkline::app::Companion companion;
    QObject::connect(&instance, &harkline::app::SingleInstance::openRequested, &companion,
                     &harkline::app::Companion::openPanel);
    return app.exec();
}
