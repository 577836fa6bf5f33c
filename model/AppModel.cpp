#include "AppModel.h"

#include "DaemonClient.h"
#include "Desktop.h"
#include "LoginItem.h"
#include "PhoneActions.h"
#include "ServiceManager.h"
#include "StatusSymbol.h"

#include <QSettings>
#include <QThreadPool>
#include <QtConcurrent>

namespace harkline {

namespace {

// Every blocking task of the companion runs here, never on the global pool (which has one thread
// per core) so that no request ever waits in a queue behind another. With every request running
// into its time-out, the threads blocked at once add up to:
//   - timer refreshes while the panel is open: one every 3 s, each up to 3 + 3 + 15 = 21 s,
//     so 21 / 3 = 7 at once, 8 at the moment one starts as another ends;
//   - two more each time the panel opens (the panel's own and the tick's): 8 for four openings
//     within those 21 s;
//   - pairing polls: one a second, each up to 3 s: 4;
//   - the user's actions: a new pairing code (6 s), a test notification (6 s), unpairing (3 s)
//     and its refresh, the service tool: 8 for a user clicking quickly.
// That is 28; 32 leaves room. Threads are made only when needed and retire after 30 s idle, so
// the bound costs nothing in the usual case of one or two requests at a time.
constexpr int kPoolThreads = 32;

QThreadPool* sharedPool()
{
    // Lives as long as the process, like the model; deliberately never destroyed, so that
    // quitting never waits for a request stuck in its time-out.
    static QThreadPool* pool = [] {
        auto* p = new QThreadPool;
        p->setMaxThreadCount(kPoolThreads);
        return p;
    }();
    return pool;
}

// Continuations are delivered through this object rather than through the model: it is never
// destroyed, so a result that arrives after a model is gone finds a live receiver and is dropped
// there (the model is checked through a guarded pointer on the main thread).
QObject* mainThreadReceiver()
{
    static QObject* receiver = new QObject;
    return receiver;
}

} // namespace

AppModel::Environment AppModel::Environment::desktop(std::function<bool()> menuVisible)
{
    Environment env;
    env.menuVisible = std::move(menuVisible);
    env.serviceManager = std::make_shared<SystemdServiceManager>();
    env.loginItem = std::make_shared<XdgAutostartLoginItem>();
    env.clipboard = std::make_shared<QtClipboard>();
    env.fileOpener = std::make_shared<DesktopFileOpener>();
    return env;
}

AppModel::AppModel(Environment environment, QObject* parent)
    : QObject(parent), m_env(std::move(environment)), m_pool(m_env.pool ? m_env.pool : sharedPool())
{
    if (!m_env.now)
        m_env.now = [] { return DaemonTime(std::chrono::system_clock::now()); };
    mainThreadReceiver(); // made here, on the main thread, where continuations must run

    connect(&m_timer, &QTimer::timeout, this, &AppModel::tick);
    if (m_env.tickInterval.count() > 0) {
        m_timer.setInterval(m_env.tickInterval);
        m_timer.start();
    }

    refresh();
}

AppModel::~AppModel() = default;

bool AppModel::menuVisible() const
{
    return m_env.menuVisible && m_env.menuVisible();
}

// Runs `work` on the pool and hands its value to `apply` on the main thread, unless the model
// has gone meanwhile. Nothing is queued, merged or cancelled: each task applies its own result
// when it ends, in the order the tasks end.
template <class Work, class Apply> void AppModel::launch(Work work, Apply apply, Origin origin)
{
    using Result = std::invoke_result_t<Work>;
    ++m_tasksInFlight;
    if (origin == Origin::Timer)
        ++m_timerTasksInFlight;
    // Always posted, never called in place: then() with a context runs the continuation at once
    // when the work has already finished, which would apply a result inside the very call that
    // asked for it (a missing service tool fails that fast).
    QtConcurrent::run(m_pool, std::move(work))
        .then(QtFuture::Launch::Sync, [self = QPointer<AppModel>(this), apply = std::move(apply),
                                       origin](Result result) mutable {
            QMetaObject::invokeMethod(
                mainThreadReceiver(),
                [self, apply = std::move(apply), origin, result = std::move(result)]() mutable {
                    if (!self)
                        return;
                    apply(std::move(result));
                    self->finishTask(origin);
                },
                Qt::QueuedConnection);
        });
}

void AppModel::finishTask(Origin origin)
{
    --m_tasksInFlight;
    if (origin == Origin::Timer)
        --m_timerTasksInFlight;
    Q_EMIT taskFinished();
}

// --- published state ---

// Every assignment is published, equal values included: observers redraw on each one.
template <class T> void AppModel::publish(T& field, T value, void (AppModel::*signal)())
{
    field = std::move(value);
    Q_EMIT(this->*signal)();
    Q_EMIT changed();
}

void AppModel::setStatus(std::optional<DaemonStatus> value)
{
    publish(m_status, std::move(value), &AppModel::statusChanged);
}

void AppModel::setDevices(std::vector<PairedDevice> value)
{
    publish(m_devices, std::move(value), &AppModel::devicesChanged);
}

void AppModel::setSessions(std::vector<ClaudeSession> value)
{
    publish(m_sessions, std::move(value), &AppModel::sessionsChanged);
}

void AppModel::setPairing(std::optional<Pairing> value)
{
    publish(m_pairing, std::move(value), &AppModel::pairingChanged);
}

void AppModel::setNotice(std::optional<QString> value)
{
    publish(m_notice, std::move(value), &AppModel::noticeChanged);
}

QString AppModel::menuBarSymbol() const
{
    return statusSymbol(m_status, m_sessions);
}

// --- refresh cycle ---

void AppModel::tick()
{
    ++m_ticks;
    const bool visible = menuVisible();
    if (m_timerTasksInFlight >= kMaxTimerTasks) {
        // The daemon is stuck; piling more requests on it would only hold more threads. The
        // refreshes out will each end by their time-out and show the daemon as not running.
    } else if (m_pairing) {
        // While an offer is open the panel shows it, not the lists: watch for the phone instead.
        pollPairing();
    } else {
        const bool justOpened = visible && !m_wasVisible;
        // Multiples of the global count, not of the time since opening, so that opening and
        // closing the panel quickly cannot produce a burst of requests.
        const bool due = visible ? m_ticks % 3 == 0 : m_ticks % 15 == 0;
        if (justOpened || due)
            startRefresh(std::nullopt, Origin::Timer);
    }
    m_wasVisible = visible;
}

void AppModel::refresh(std::optional<bool> detailed)
{
    startRefresh(detailed, Origin::User);
}

void AppModel::startRefresh(std::optional<bool> detailed, Origin origin)
{
    const bool flag = detailed.value_or(menuVisible());
    Q_EMIT refreshStarted(flag);
    launch([flag] { return load(flag); },
           [this, flag](Loaded loaded) {
               setStatus(std::move(loaded.status));
               if (!m_status) {
                   setDevices({});
                   setSessions({});
               } else if (flag) {
                   setDevices(std::move(loaded.devices));
                   setSessions(std::move(loaded.sessions));
               }
               // A summary keeps the lists of the last detailed refresh or pairing poll.
           },
           origin);
}

AppModel::Loaded AppModel::load(bool detailed)
{
    Loaded loaded;
    const auto status = DaemonClient::ok(DaemonClient::status());
    if (!status)
        return loaded;
    loaded.status = DaemonStatus(*status);
    if (!detailed)
        return loaded;
    loaded.devices = loadDevices();
    loaded.sessions = DaemonClient::sessionsFrom(DaemonClient::ok(DaemonClient::sessions()));
    return loaded;
}

// --- pairing ---

void AppModel::startPairing()
{
    setNotice(std::nullopt);
    launch(requestPairing, [this](PairingRequest result) {
        if (!result.offer) {
            // An offer already on screen stays there, expired or not.
            setNotice(pairingFailedNotice());
            return;
        }
        setPairing(openPairing(std::move(*result.offer), result.devices, m_env.now()));
    });
}

void AppModel::pollPairing()
{
    if (!m_pairing || !pairingWatched(*m_pairing, m_env.now()))
        return;
    launch(
        loadDevices,
        [this, snapshot = *m_pairing](std::vector<PairedDevice> devices) {
            // The offer may have been closed or replaced while the request was out; the result then
            // belongs to nobody.
            if (!m_pairing || m_pairing->payload != snapshot.payload)
                return;
            const auto fresh = newlyPaired(snapshot, devices);
            if (!fresh)
                return;
            Pairing pairing = *m_pairing;
            pairing.pairedWith = fresh->name;
            setPairing(std::move(pairing));
            setDevices(std::move(devices));
        },
        Origin::Timer);
}

void AppModel::stopPairing()
{
    setPairing(std::nullopt);
    refresh();
}

void AppModel::copyPairingCode()
{
    if (!m_pairing)
        return;
    if (m_env.clipboard)
        m_env.clipboard->setText(QString::fromStdString(m_pairing->payload));
    setNotice(tr("Pairing code copied."));
}

// --- service and phone actions ---

void AppModel::startService(bool restart)
{
    setNotice(std::nullopt);
    launch([manager = m_env.serviceManager, restart] { return manager && manager->run(restart); },
           [this](bool started) {
               if (!started) {
                   setNotice(tr("The service is not installed. Run `harkline install` in a "
                                "terminal."));
                   return;
               }
               // Give the daemon a moment to open its socket, ask, and look at what came back.
               QTimer::singleShot(m_env.serviceSettle, this, [this] {
                   refresh();
                   QTimer::singleShot(m_env.serviceCheck, this, [this] {
                       if (!m_status)
                           setNotice(tr("The service did not start. See the log for the reason."));
                   });
               });
           });
}

void AppModel::revoke(const PairedDevice& device)
{
    launch([id = device.id] { return revokeWork(id); },
           [this, name = device.name](bool removed) {
               setNotice(revokeNotice(name, removed));
               refresh();
           });
}

void AppModel::sendTest()
{
    launch(sendTestWork,
           [this](std::optional<std::int64_t> connected) { setNotice(sendTestNotice(connected)); });
}

// --- login item and log ---

bool AppModel::opensAtLogin() const
{
    return m_env.loginItem && m_env.loginItem->enabled();
}

void AppModel::setOpensAtLogin(bool on)
{
    if (!m_env.loginItem)
        return;
    const auto failure = on ? m_env.loginItem->registerItem() : m_env.loginItem->unregisterItem();
    if (failure)
        setNotice(tr("Could not change the login item: %1").arg(*failure));
}

void AppModel::openLog()
{
    if (m_env.fileOpener)
        m_env.fileOpener->open(daemonLogPath());
}

void openAtLoginOnFirstLaunch(QSettings& settings, LoginItem& loginItem)
{
    if (settings.value(QLatin1String(kOpenAtLoginDefaultAppliedKey), false).toBool())
        return;
    settings.setValue(QLatin1String(kOpenAtLoginDefaultAppliedKey), true);
    settings.sync();
    (void)loginItem.registerItem(); // a failure here is not the user's to see; never retried
}

} // namespace harkline
