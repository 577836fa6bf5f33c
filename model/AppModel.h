#pragma once

#include "Pairing.h"
#include "Records.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QSettings;
class QThreadPool;

namespace harkline {

class Clipboard;
class FileOpener;
class LoginItem;
class ServiceManager;

// The one object that holds everything the companion shows. It lives on the main thread; every
// daemon request and every run of the service tool happens on a background thread, and only the
// main thread reads or changes the state below.
//
// Every assignment to one of the five published properties emits that property's signal and then
// changed(), also when the new value equals the old one: observers redraw on each of them.
class AppModel : public QObject
{
    Q_OBJECT

public:
    // What the model needs from the desktop, replaceable so the model can run without one.
    struct Environment
    {
        // Whether the menu panel (or any window of ours but the tray icon's) is on screen.
        std::function<bool()> menuVisible;
        std::shared_ptr<ServiceManager> serviceManager;
        std::shared_ptr<LoginItem> loginItem;
        std::shared_ptr<Clipboard> clipboard;
        std::shared_ptr<FileOpener> fileOpener;
        std::function<DaemonTime()> now;
        // After the service tool succeeds: wait, refresh, wait, then look at the status.
        std::chrono::milliseconds serviceSettle{1500};
        std::chrono::milliseconds serviceCheck{500};
        // Zero leaves the timer off, for tests that call tick() themselves.
        std::chrono::milliseconds tickInterval{1000};
        // Runs every blocking task; by default one pool shared for the life of the process.
        QThreadPool* pool = nullptr;

        // The real desktop: the systemd user instance, an XDG autostart entry, the Qt clipboard,
        // the desktop's file viewer and the system clock. Visibility has no default here: the
        // model cannot see widgets, so the application passes its own test in.
        static Environment desktop(std::function<bool()> menuVisible);
    };

    // Sets the initial state, starts the one-second timer and the first refresh.
    explicit AppModel(Environment environment, QObject* parent = nullptr);
    ~AppModel() override;

    const std::optional<DaemonStatus>& status() const { return m_status; }
    const std::vector<PairedDevice>& devices() const { return m_devices; }
    const std::vector<ClaudeSession>& sessions() const { return m_sessions; }
    const std::optional<Pairing>& pairing() const { return m_pairing; }
    const std::optional<QString>& notice() const { return m_notice; }

    // "bell.slash" while the daemon does not answer, "bell.badge" when something waits for the
    // user, "bell" otherwise.
    QString menuBarSymbol() const;

    // One timer step. Public so that tests can drive the cadence without waiting a second each.
    void tick();

    // Starts one refresh and returns at once. Without a flag, the refresh is detailed (status,
    // phones, sessions) exactly when the menu is on screen, a summary (status alone) otherwise.
    void refresh(std::optional<bool> detailed = std::nullopt);

    void startPairing();
    void stopPairing();
    void copyPairingCode();

    void startService(bool restart);
    void revoke(const PairedDevice& device);
    void sendTest();

    bool opensAtLogin() const;
    void setOpensAtLogin(bool on);
    void openLog();

    // Blocking tasks started and not yet applied (or dropped). Lets a caller wait for quiet.
    int tasksInFlight() const { return m_tasksInFlight; }

    // At most this many tasks started by the timer (refreshes, pairing polls) are out at once; a
    // tick that finds them all still waiting on the daemon starts nothing and leaves the work to
    // the next due tick. What the user asks for (opening the panel, the actions) always starts.
    static constexpr int kMaxTimerTasks = 8;
    int timerTasksInFlight() const { return m_timerTasksInFlight; }

signals:
    void statusChanged();
    void devicesChanged();
    void sessionsChanged();
    void pairingChanged();
    void noticeChanged();
    void changed(); // after any of the five above

    void refreshStarted(bool detailed);
    void taskFinished();

private:
    struct Loaded
    {
        std::optional<DaemonStatus> status;
        std::vector<PairedDevice> devices;
        std::vector<ClaudeSession> sessions;
    };
    static Loaded load(bool detailed);

    void pollPairing();
    bool menuVisible() const;

    enum class Origin { User, Timer };
    void startRefresh(std::optional<bool> detailed, Origin origin);
    template <class Work, class Apply> void launch(Work work, Apply apply, Origin = Origin::User);
    void finishTask(Origin origin);

    template <class T> void publish(T& field, T value, void (AppModel::*signal)());
    void setStatus(std::optional<DaemonStatus> value);
    void setDevices(std::vector<PairedDevice> value);
    void setSessions(std::vector<ClaudeSession> value);
    void setPairing(std::optional<Pairing> value);
    void setNotice(std::optional<QString> value);

    Environment m_env;
    QThreadPool* m_pool;
    QTimer m_timer;

    std::optional<DaemonStatus> m_status;
    std::vector<PairedDevice> m_devices;
    std::vector<ClaudeSession> m_sessions;
    std::optional<Pairing> m_pairing;
    std::optional<QString> m_notice;

    std::int64_t m_ticks = 0;
    bool m_wasVisible = false;
    int m_tasksInFlight = 0;
    int m_timerTasksInFlight = 0;
};

// Registers the companion to open at login on its very first launch, once: the flag is stored
// before the attempt, so a failed or later undone registration is never tried again. Call at
// every start, before the model is made.
inline constexpr const char* kOpenAtLoginDefaultAppliedKey = "openAtLoginDefaultApplied";
void openAtLoginOnFirstLaunch(QSettings& settings, LoginItem& loginItem);

} // namespace harkline
