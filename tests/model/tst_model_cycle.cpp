// The refresh cycle: when the timer refreshes, what each refresh applies and in which order, a
// daemon that goes away and comes back, the status symbol, and a main thread that never waits.

#include "DaemonClient.h"
#include "ModelTestKit.h"
#include "TestHome.h"

#include <QElapsedTimer>
#include <QTimer>

using namespace harkline;
using namespace harkline::test;
using Script = FakeDaemon::Script;

Q_DECLARE_METATYPE(harkline::Json)

class ModelCycleTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> home;
    const Json status{{"ok", true}, {"name", "harkline"}, {"port", 8080}, {"pending", 0}};
    const Json devices{{"ok", true}, {"devices", {{{"id", "p1"}, {"name", "Pixel"}}}}};
    const Json sessions{{"ok", true},
                        {"sessions", {{{"id", "s1"}, {"state", "working"}}, {{"id", "s2"}}}}};

    // Runs ticks 1..visibility.size() with the given visibility and returns "tick:kind" for
    // each refresh started.
    static QStringList cadence(const QList<bool>& visibility)
    {
        FakeDesktop desktop;
        AppModel model(desktop.environment());
        QStringList started;
        int tick = 0;
        connect(&model, &AppModel::refreshStarted, [&](bool detailed) {
            started << QStringLiteral("%1:%2").arg(tick).arg(detailed ? "detailed" : "summary");
        });
        for (const bool visible : visibility) {
            desktop.visible = visible;
            ++tick;
            model.tick();
        }
        settle(model);
        return started;
    }

    static QList<bool> ticks(int hiddenFirst, int visibleThen, int hiddenAfter = 0)
    {
        return QList<bool>(hiddenFirst, false) + QList<bool>(visibleThen, true) +
               QList<bool>(hiddenAfter, false);
    }

private slots:
    void initTestCase() { home = std::make_unique<TestHome>(); }

    void timerCadence_data()
    {
        QTest::addColumn<QList<bool>>("visibility");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("hidden: every 15th tick, summary")
            << ticks(45, 0) << QStringList{"15:summary", "30:summary", "45:summary"};
        QTest::newRow("visible throughout: on opening, then every 3rd global tick")
            << ticks(0, 12)
            << QStringList{"1:detailed", "3:detailed", "6:detailed", "9:detailed", "12:detailed"};
        QTest::newRow("opens at tick 7")
            << ticks(6, 6) << QStringList{"7:detailed", "9:detailed", "12:detailed"};
        QTest::newRow("opens at tick 9: one refresh, not two")
            << ticks(8, 2) << QStringList{"9:detailed"};
        QTest::newRow("closes at tick 10: back to every 15th, summary")
            << ticks(0, 9, 7)
            << QStringList{"1:detailed", "3:detailed", "6:detailed", "9:detailed", "15:summary"};
    }
    void timerCadence()
    {
        QFETCH(QList<bool>, visibility);
        QFETCH(QStringList, expected);
        QCOMPARE(cadence(visibility), expected);
    }

    void pairingReplacesRefreshesAndStillTracksVisibility()
    {
        FakeDaemon daemon(DaemonClient::socketPath());
        daemon.setReplies({{"status", status},
                           {"devices", devices},
                           {"pair", {{"ok", true}, {"qr", "hk1:abc"}, {"expires_in", 60}}}});
        FakeDesktop desktop;
        desktop.visible = true;
        AppModel model(desktop.environment());
        model.startPairing();
        QVERIFY(settle(model) && model.pairing());

        QSignalSpy refreshes(&model, &AppModel::refreshStarted);
        const int devicesBefore = countCommand(daemon, "devices");
        for (int i = 0; i < 16; ++i) {
            desktop.visible = i % 5 != 4; // opens and closes, crossing multiples of 3 and 15
            model.tick();
            QVERIFY(settle(model)); // a second apart, each poll ends before the next tick
        }
        QCOMPARE(refreshes.count(), 0);
        QCOMPARE(countCommand(daemon, "devices") - devicesBefore, 16); // one poll per tick

        // The panel stayed open through the last ticks: closing the offer refreshes once, and
        // the next tick (17, not a multiple of 3) is not taken for a fresh opening.
        model.stopPairing();
        QCOMPARE(refreshes.count(), 1);
        model.tick();
        QCOMPARE(refreshes.count(), 1);
    }

    void theTimerDrivesTicks()
    {
        FakeDesktop desktop;
        desktop.visible = true;
        auto env = desktop.environment();
        env.tickInterval = std::chrono::milliseconds(10);
        AppModel model(env);
        QSignalSpy refreshes(&model, &AppModel::refreshStarted);
        QVERIFY(refreshes.wait(2000)); // the opening tick, with nobody calling tick()
        QCOMPARE(refreshes.first().first().toBool(), true);
        settle(model);
    }

    void refreshAppliesStatusThenListsOnlyWhenDetailed()
    {
        FakeDaemon daemon(DaemonClient::socketPath());
        daemon.setReplies({{"status", status}, {"devices", devices}, {"sessions", sessions}});
        FakeDesktop desktop;
        AppModel model(desktop.environment()); // hidden: the first refresh is a summary
        QVERIFY(settle(model));
        QCOMPARE(model.status()->port, 8080);
        QVERIFY(model.devices().empty() && model.sessions().empty());

        Assignments order(model);
        model.refresh(true);
        QVERIFY(settle(model));
        QCOMPARE(order.names, (QStringList{"status", "devices", "sessions"}));
        QCOMPARE(model.devices().at(0).name, "Pixel");
        QCOMPARE(model.sessions().size(), 2u);

        // A summary while the daemon answers: only the status is assigned; the lists stay.
        daemon.setReplies(
            {{"status", status}, {"devices", {{"ok", true}, {"devices", Json::array()}}}});
        order.names.clear();
        model.refresh(false);
        QVERIFY(settle(model));
        QCOMPARE(order.names, QStringList{"status"});
        QCOMPARE(model.devices().size(), 1u);
        QCOMPARE(model.sessions().size(), 2u);

        // Sessions refused, malformed devices: status shown, both lists empty.
        daemon.setReplies(
            {{"status", status}, {"devices", {{"ok", true}, {"devices", Json::array({1})}}}});
        model.refresh(true);
        QVERIFY(settle(model));
        QVERIFY(model.status() && model.devices().empty() && model.sessions().empty());
    }

    void daemonThatStopsAnsweringAndComesBack()
    {
        FakeDesktop desktop;
        desktop.visible = true;
        auto daemon = std::make_unique<FakeDaemon>(DaemonClient::socketPath());
        daemon->setReplies({{"status", status}, {"devices", devices}, {"sessions", sessions}});
        AppModel model(desktop.environment());
        QVERIFY(settle(model) && model.status() && !model.sessions().empty());

        // "ok": false is no answer; a summary empties the lists as a detailed refresh does.
        daemon->setReplies({{"status", {{"ok", false}, {"name", "x"}}}});
        Assignments order(model);
        model.refresh(false);
        QVERIFY(settle(model));
        QCOMPARE(order.names, (QStringList{"status", "devices", "sessions"}));
        QVERIFY(!model.status() && model.devices().empty() && model.sessions().empty());
        QCOMPARE(model.menuBarSymbol(), "bell.slash");

        daemon.reset(); // nobody listening any more
        model.refresh(true);
        QVERIFY(settle(model) && !model.status());

        daemon = std::make_unique<FakeDaemon>(DaemonClient::socketPath());
        daemon->setReplies({{"status", status}, {"devices", devices}, {"sessions", sessions}});
        model.refresh();
        QVERIFY(settle(model));
        QVERIFY(model.status() && model.devices().size() == 1 && model.sessions().size() == 2);
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

    void menuBarSymbol_data()
    {
        QTest::addColumn<Json>("statusReply");
        QTest::addColumn<Json>("sessionList");
        QTest::addColumn<QString>("symbol");
        const Json waitingAmongOthers = {{{"state", "working"}}, {{"state", "waiting"}}};
        QTest::newRow("no status") << Json{{"ok", false}} << waitingAmongOthers << "bell.slash";
        QTest::newRow("pending") << Json{{"ok", true}, {"pending", 2}} << Json::array()
                                 << "bell.badge";
        QTest::newRow("a waiting session")
            << Json{{"ok", true}} << waitingAmongOthers << "bell.badge";
        QTest::newRow("Waiting, capitalised")
            << Json{{"ok", true}, {"pending", -1}}
            << Json{{{"state", "Waiting"}}, {{"state", "ended"}}} << "bell";
        QTest::newRow("quiet") << Json{{"ok", true}} << Json::array() << "bell";
    }
    void menuBarSymbol()
    {
        QFETCH(Json, statusReply);
        QFETCH(Json, sessionList);
        FakeDaemon daemon(DaemonClient::socketPath());
        daemon.setReplies({{"status", statusReply},
                           {"devices", devices},
                           {"sessions", {{"ok", true}, {"sessions", sessionList}}}});
        FakeDesktop desktop;
        desktop.visible = true;
        AppModel model(desktop.environment());
        QVERIFY(settle(model));
        QFETCH(QString, symbol);
        QCOMPARE(model.menuBarSymbol(), symbol);
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
            const qint64 t = clock.elapsed();
            worstGap = std::max(worstGap, t - last);
            last = t;
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
