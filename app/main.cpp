// harkline-menubar: the tray companion of the harkline daemon.

#include "AppModel.h"
#include "Companion.h"
#include "LoginItem.h"
#include "SingleInstance.h"

#include "Looks.h"

#include <QApplication>
#include <QSettings>
#include <QSocketNotifier>
#include <QStyle>
#include <QStyleFactory>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int signalPipe[2] = {-1, -1};

// A session that ends sends SIGTERM: leave through the event loop like "Quit" does.
void quitOnSignals()
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0)
        return;
    struct sigaction action = {};
    action.sa_handler = [](int) {
        const char byte = 1;
        (void)!::write(signalPipe[0], &byte, 1);
    };
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
    auto* notifier = new QSocketNotifier(signalPipe[1], QSocketNotifier::Read, qApp);
    QObject::connect(notifier, &QSocketNotifier::activated, qApp, [] {
        char byte;
        (void)!::read(signalPipe[1], &byte, 1);
        QCoreApplication::quit();
    });
}

// GNOME's compositor lets no Wayland client place a window, nor keep one out of its task list;
// through XWayland it honours both. There the panel opens by the tray icon (the click position
// the shell reports is the screen's), so GNOME gets Qt's X11 platform unless the user chose one.
// Wayland stays the fallback for a session without XWayland.
void preferX11OnGnome()
{
    if (qEnvironmentVariableIsSet("QT_QPA_PLATFORM") ||
        qEnvironmentVariable("XDG_SESSION_TYPE") != QLatin1String("wayland") ||
        !qEnvironmentVariable("XDG_CURRENT_DESKTOP")
             .split(u':')
             .contains(QLatin1String("GNOME"), Qt::CaseInsensitive))
        return;
    qputenv("QT_QPA_PLATFORM", "xcb;wayland");
}

} // namespace

int main(int argc, char* argv[])
{
    preferX11OnGnome();
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("harkline"));
    QApplication::setApplicationName(QStringLiteral("harkline-menubar"));
    QApplication::setApplicationDisplayName(QStringLiteral("harkline"));
    // Ties the windows and the tray item to the installed menu entry and its icon.
    QApplication::setDesktopFileName(QStringLiteral(HARKLINE_APP_ID));
    // The panel closing is not the companion ending; only "Quit" ends it.
    QApplication::setQuitOnLastWindowClosed(false);
    // Focus rings that keyboard users can see on any palette, light or dark.
    QApplication::setStyle(
        harkline::ui::looks::focusStyle(QStyleFactory::create(QApplication::style()->name())));

    quitOnSignals();

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
        // An entry left behind by a removed install must not point at nothing.
        loginItem.repair();
        harkline::openAtLoginOnFirstLaunch(settings, loginItem);
    }

    harkline::app::Companion companion;
    QObject::connect(&instance, &harkline::app::SingleInstance::openRequested, &companion,
                     &harkline::app::Companion::openPanel);
    return app.exec();
}
