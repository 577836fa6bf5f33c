#pragma once

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>
#include <QTimer>

namespace harkline::app {

// Tells when a tray host is there to show our icon. Qt decides once per process whether to use
// a StatusNotifierItem host or an XEmbed tray, at the first icon made; at login the companion
// often starts before the desktop's tray, so the icon must only be made once a host is up.
//
// A host is there when org.kde.StatusNotifierWatcher is on the session bus and says a host is
// registered, or when an X11 XEmbed tray owns its selection.
class TrayHostWatcher : public QObject
{
    Q_OBJECT

public:
    static constexpr const char* kWatcherService = "org.kde.StatusNotifierWatcher";
    static constexpr const char* kWatcherPath = "/StatusNotifierWatcher";

    explicit TrayHostWatcher(QDBusConnection bus, QObject* parent = nullptr);

    enum class Kind { None, StatusNotifier, XEmbed };

    // Starts looking; available() follows, at once or whenever a host shows up.
    void start();
    bool isAvailable() const { return m_kind != Kind::None; }
    Kind kind() const { return m_kind; }

signals:
    // Once, the first time a host is found.
    void available();

private slots:
    void checkStatusNotifierHost();

private:
    void checkXEmbed();
    void found(Kind kind);

    QDBusConnection m_bus;
    QDBusServiceWatcher m_serviceWatcher;
    QTimer m_poll;
    Kind m_kind = Kind::None;
};

// Whether an XEmbed system tray owns its selection on the X display; false off X11.
bool xembedTrayPresent();

} // namespace harkline::app
