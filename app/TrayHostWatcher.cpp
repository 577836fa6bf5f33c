#include "TrayHostWatcher.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QGuiApplication>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>

namespace harkline::app {

namespace {
// Host registration and an XEmbed tray announce themselves in ways we do not all subscribe to;
// a slow look every few seconds, only while no host is known, catches the rest.
constexpr int kPollMs = 2000;
} // namespace

bool xembedTrayPresent()
{
    auto* x11 = qApp ? qApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection())
        return false;
    xcb_connection_t* connection = x11->connection();
    // The tray selection is per screen; the display's default screen is the one we use.
    int screen = 0;
    if (const char* display = std::getenv("DISPLAY")) {
        if (const char* dot = std::strrchr(display, '.'); dot && std::strchr(display, ':') < dot)
            screen = std::atoi(dot + 1);
    }
    const QByteArray name = "_NET_SYSTEM_TRAY_S" + QByteArray::number(screen);
    xcb_intern_atom_reply_t* atom = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 1, uint16_t(name.size()), name.constData()),
        nullptr);
    if (!atom)
        return false;
    const xcb_atom_t selection = atom->atom;
    std::free(atom);
    if (selection == XCB_ATOM_NONE)
        return false;
    xcb_get_selection_owner_reply_t* owner = xcb_get_selection_owner_reply(
        connection, xcb_get_selection_owner(connection, selection), nullptr);
    const bool present = owner && owner->owner != XCB_WINDOW_NONE;
    std::free(owner);
    return present;
}

TrayHostWatcher::TrayHostWatcher(QDBusConnection bus, QObject* parent)
    : QObject(parent), m_bus(std::move(bus))
{
    m_serviceWatcher.setConnection(m_bus);
    m_serviceWatcher.addWatchedService(QLatin1String(kWatcherService));
    m_serviceWatcher.setWatchMode(QDBusServiceWatcher::WatchForRegistration);
    connect(&m_serviceWatcher, &QDBusServiceWatcher::serviceRegistered, this,
            &TrayHostWatcher::checkStatusNotifierHost);
    m_poll.setInterval(kPollMs);
    connect(&m_poll, &QTimer::timeout, this, &TrayHostWatcher::checkStatusNotifierHost);
}

void TrayHostWatcher::start()
{
    if (m_bus.isConnected()) {
        // A host registering after the watcher appeared is announced by this signal.
        m_bus.connect(QLatin1String(kWatcherService), QLatin1String(kWatcherPath),
                      QLatin1String(kWatcherService),
                      QStringLiteral("StatusNotifierHostRegistered"), this,
                      SLOT(checkStatusNotifierHost()));
    }
    checkStatusNotifierHost();
    if (!isAvailable())
        m_poll.start();
}

// A desktop with both (Xfce) gets a StatusNotifierItem: its host draws our menu and reports
// where the icon was clicked. So XEmbed is looked at only once the bus has said no.
void TrayHostWatcher::checkStatusNotifierHost()
{
    if (isAvailable())
        return;
    if (!m_bus.isConnected()) {
        checkXEmbed();
        return;
    }
    QDBusMessage get = QDBusMessage::createMethodCall(
        QLatin1String(kWatcherService), QLatin1String(kWatcherPath),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << QLatin1String(kWatcherService) << QStringLiteral("IsStatusNotifierHostRegistered");
    // Asynchronous: a watcher that hangs must not freeze the companion.
    auto* call = new QDBusPendingCallWatcher(m_bus.asyncCall(get, 2000), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* w) {
        QDBusPendingReply<QDBusVariant> reply = *w;
        w->deleteLater();
        if (!reply.isError() && reply.value().variant().toBool())
            found(Kind::StatusNotifier);
        else
            checkXEmbed();
    });
}

void TrayHostWatcher::checkXEmbed()
{
    if (!isAvailable() && xembedTrayPresent())
        found(Kind::XEmbed);
}

void TrayHostWatcher::found(Kind kind)
{
    if (isAvailable())
        return;
    m_kind = kind;
    m_poll.stop();
    Q_EMIT available();
}

} // namespace harkline::app
