// The refresh cycle: when the timer refreshes, what each refresh applies and in which order, a
// daemon that goes away and comes back, and a main thread that never waits. (The status symbol
// is pinned where it is shown: the tray suite and harklinectl's status-bar line.)

#include "ModelKit.h"

#include <QElapsedTimer>
#include <QTimer>

using namespace harkline;
using namespace harkline::test;
using Script = FakeDaemon::Script;

namespace {

// Records, in order, which published property was assigned.
struct Assignments
{
    QStringList names;
    explicit Assignments(AppModel& model)
    {
        QObject::connect(&model, &AppModel::statusChanged, [this] { names << "status"; });
        QObject::connect(&model, &AppModel::devicesChanged, [this] { names << "devices"; });
        QObject::connect(&model, &AppModel::sessionsChanged, [this] { names << "sessions"; });
        QObject::connect(&model, &AppModel::pairingChanged, [this] { names << "pairing"; });
        QObject::connect(&model, &AppModel::noticeChanged, [this] { names << "notice"; });
    }
    QStringList take() { return std::exchange(names, {}); }
};

// Runs one tick per entry with that visibility; "tick:kind" for each refresh started.
QStringList cadence(int hiddenFirst, int visibleThen, int hiddenAfter = 0)
{
    FakeDesktop desktop;
    AppModel model(desktop.environment());
    QStringList started;
    int tick = 0;
    QObject::connect(&model, &AppModel::refreshStarted, [&](bool detailed) {
        started << QStringLiteral("%1:%2").arg(tick).arg(detailed ? "detailed" : "summary");
    });
    for (const bool visible : QList<bool>(hiddenFirst, false) + QList<bool>(visibleThen, true) +
                                  QList<bool>(hiddenAfter, false)) {
        desktop.visible = visible;
        ++tick;
        model.tick();
    }
    settle(model);
    return started;
}

} // namespace

class ModelCycleTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> home;

private slots:
    void initTestCase() { home = std::make_unique<TestHome>(); }

    void timerCadence()
    {
        // Hidden: every 15th tick, a summary.
        QCOMPARE(cadence(45, 0), (QStringList{"15:summary", "30:summary", "45:summary"}));
        // Visible: on opening, then on every 3rd tick of the global count.
        QCOMPARE(cadence(0, 12), (QStringList{"1:detailed", "3:detailed", "6:detailed",
                                              "9:detailed", "12:detailed"}));
        QCOMPARE(cadence(6, 6), (QStringList{"7:detailed", "9:detailed", "12:detailed"}));
        QCOMPARE(cadence(8, 2), QStringList{"9:detailed"}); // opening on a 3rd: once, not twice
        QCOMPARE(cadence(0, 9, 7), (QStringList{"1:detailed", "3:detailed", "6:detailed",
                                                "9:detailed", "15:summary"}));
    }

    void pairingReplacesRefreshesAndStillTracksVisibility()
    {
        ScriptedDaemon daemon;
        FakeDesktop desktop;
        desktop.visible = true;
        AppModel model(desktop.environment());
        model.startPairing();
        QVERIFY(settle(model) && model.pairing());

        QSignalSpy refreshes(&model, &AppModel::refreshStarted);
        const int devicesBefore = daemon.count("devices");
        for (int i = 0; i < 16; ++i) {
            desktop.visible = i % 5 != 4; // opens and closes, crossing multiples of 3 and 15
            model.tick();
            QVERIFY(settle(model)); // a second apart, each poll ends before the next tick
        }
        QCOMPARE(refreshes.count(), 0);
        QCOMPARE(daemon.count("devices") - devicesBefore, 16); // one poll per tick

        // The panel stayed open through the last ticks: closing the offer refreshes once, and
        // the next tick (17, not a multiple of 3) is not taken for a fresh opening.
        model.stopPairing();
        QCOMPARE(refreshes.count(), 1);
        model.tick();
        QCOMPARE(refreshes.count(), 1);
        QVERIFY(settle(model));
    }

    void refreshAppliesStatusThenListsOnlyWhenDetailed()
    {
        ScriptedDaemon daemon;
        daemon.set([](ScriptedDaemon& d) {
            d.devices = Json::array({phone("p1", "Pixel")});
            d.sessions = Json::array({session("s1", "working"), session("s2", "ended")});
        });
        FakeDesktop desktop;
        AppModel model(desktop.environment()); // hidden: the first refresh is a summary
        QVERIFY(settle(model));
        QCOMPARE(model.status()->port, 7420);
        QVERIFY(model.devices().empty() && model.sessions().empty());

        Assignments order(model);
        model.refresh(true);
        QVERIFY(settle(model));
        QCOMPARE(order.take(), (QStringList{"status", "devices", "sessions"}));
        QCOMPARE(model.devices().at(0).name, "Pixel");
        QCOMPARE(model.sessions().size(), 2u);

        // A summary while the daemon answers: only the status is assigned; the lists stay.
        daemon.set([](ScriptedDaemon& d) { d.devices = Json::array(); });
        model.refresh(false);
        QVERIFY(settle(model));
        QCOMPARE(order.take(), QStringList{"status"});
        QVERIFY(model.devices().size() == 1 && model.sessions().size() == 2);

        // Malformed lists: status shown, both lists empty.
        daemon.set([](ScriptedDaemon& d) {
            d.devices = Json::array({1});
            d.sessions = "none";
        });
        model.refresh(true);
        QVERIFY(settle(model));
        QVERIFY(model.status() && model.devices().empty() && model.sessions().empty());

        // "ok": false is no answer; a summary then empties the lists as a detailed refresh does.
        daemon.set([](ScriptedDaemon& d) { d.running = false; });
        order.take();
        model.refresh(false);
        QVERIFY(settle(model));
        QCOMPARE(order.take(), (QStringList{"status", "devices", "sessions"}));
        QVERIFY(!model.status() && model.devices().empty() && model.sessions().empty());
    }

    void everyAssignmentNotifiesAndLateLoadsStillApply()
    {
        FakeDaemon daemon(DaemonClient::socketPath());
        std::atomic<int> statusRequests{0};
        daemon.setHandler([&](const std::string& line) {
            const std::string cmd = FakeDaemon::commandOf(line);
            if (cmd != "status")
                return Script::answer({{"ok", true}, {cmd, Json::array()}});
            // The first status answer is slow and names an older daemon.
            if (++statusRequests == 2)
                return slowAnswer({{"ok", true}, {"name", "older"}},
                                  std::chrono::milliseconds(400));
            return Script::answer({{"ok", true}, {"name", "newer"}});
        });
        FakeDesktop desktop;
        AppModel model(desktop.environment());
        QVERIFY(settle(model));

        QSignalSpy changed(&model, &AppModel::changed);
        model.refresh(true); // slow
        QTest::qWait(50);
        model.refresh(true); // fast, same values otherwise
        QVERIFY(settle(model));
        // Nothing coalesced or skipped: both refreshes assigned all three, equal or not, and
        // the older load, ending last, has the last word.
        QCOMPARE(changed.count(), 6);
        QCOMPARE(model.status()->name, "older");
    }

    void mainThreadStaysFreeWhileTheDaemonHangs()
    {
        auto daemon = std::make_unique<FakeDaemon>(DaemonClient::socketPath());
        daemon->setHandler([](const std::string&) { return Script::never(); });
        FakeDesktop desktop;
        desktop.visible = true;
        AppModel model(desktop.environment());

        QElapsedTimer clock;
        qint64 last = 0, worstGap = 0;
        int firings = 0;
        QTimer heartbeat;
        heartbeat.setInterval(10);
        connect(&heartbeat, &QTimer::timeout, [&] {
            worstGap = std::max(worstGap, clock.elapsed() - last);
            last = clock.elapsed();
            ++firings;
        });
        clock.start();
        heartbeat.start();
        for (int i = 0; i < 30; ++i) {
            model.tick();
            if (i < 12)
                model.refresh(true);
        }
        model.startPairing();
        model.sendTest();
        model.revoke(PairedDevice{});
        QTest::qWait(800);
        heartbeat.stop();

        QVERIFY2(worstGap < 50, qPrintable(QStringLiteral("gap of %1 ms").arg(worstGap)));
        QVERIFY(firings > 30);
        // No request waited for a free thread: all reached the daemon together. The first
        // refresh, the ticks' (1, 3, 6, ... 30: eleven due, the cap lets eight out), the explicit
        // ones, then one for each action, which the hung timer refreshes never hold back.
        QCOMPARE(model.timerTasksInFlight(), AppModel::kMaxTimerTasks);
        QCOMPARE(daemon->connections(), 1 + AppModel::kMaxTimerTasks + 12 + 3);
        QVERIFY(model.tasksInFlight() > 0);

        daemon.reset(); // releases the hung connections
        QVERIFY(settle(model));
        QVERIFY(!model.status());
    }
};

QTEST_MAIN(ModelCycleTest)
#include "tst_model_cycle.moc"
