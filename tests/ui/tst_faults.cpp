// The Companion, panel open, against a daemon misbehaving one way at a time: the main thread keeps
// turning, the panel says what is true during and one refresh after the fault. More: tst_daemon.

#include "Companion.h"
#include "DaemonClient.h"
#include "FakeDaemon.h"
#include "HeaderView.h"
#include "MenuView.h"
#include "PanelWindow.h"
#include "TestHome.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTest>

#include <atomic>
#include <memory>
#include <unistd.h>

using namespace harkline;
using namespace harkline::test;
using Script = FakeDaemon::Script;
using namespace std::chrono_literals;

namespace {

// A wait on the daemon would stall a whole time-out (1 s+); room left for sanitizers.
constexpr qint64 kMaxGapMs = 500;
constexpr int kRefreshPeriodMs = 3000; // panel open

enum class Fault { None, Hang, Trickle, Garbage, StayOpen, Killed };

const Json kStatus = {
    {"ok", true},   {"name", "harkline"}, {"port", 7420}, {"hosts", Json::array({"192.168.1.5"})},
    {"devices", 1}, {"connected", 1},     {"pending", 0}};

Script healthy(const std::string& line)
{
    const std::string cmd = FakeDaemon::commandOf(line); // devices, sessions: none
    return Script::answer(cmd == "status" ? kStatus : Json{{"ok", true}, {cmd, Json::array()}});
}

Script faulty(Fault fault, const std::string& line)
{
    switch (fault) {
    case Fault::Hang:
        return Script::never();
    case Fault::Trickle: {
        Script script;
        for (char c : kStatus.dump() + "\n")
            script.chunks.emplace_back(1, c);
        script.gap = 100ms;
        return script;
    }
    case Fault::Garbage:
        return Script::bytes("HTTP/1.1 400 Bad Request\r\n\r\n\xff\xfe");
    case Fault::StayOpen: {
        Script script = healthy(line);
        script.hang = true;
        return script;
    }
    default:
        return healthy(line);
    }
}

// Waits for `condition`, which the event loop checks whenever it is free; `held` grows to the
// longest the main thread went without checking it.
bool waitFor(const std::function<bool()>& condition, int timeoutMs, qint64& held)
{
    QElapsedTimer clock;
    clock.start();
    qint64 last = 0;
    return QTest::qWaitFor(
        [&] {
            held = std::max(held, clock.elapsed() - last);
            last = clock.elapsed();
            return condition();
        },
        timeoutMs);
}

} // namespace

class FaultsTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> home;
    std::unique_ptr<FakeDaemon> daemon;
    std::atomic<Fault> fault{Fault::None};
    std::unique_ptr<app::Companion> companion;

    ui::MenuView* menu() const { return companion->panel()->findChild<ui::MenuView*>(); }
    bool showsRunning() const
    {
        return !menu()->notRunningView() &&
               menu()->header()->subtitle() == ui::HeaderView::subtitleFor(DaemonStatus(kStatus));
    }
    bool showsNotRunning() const
    {
        return menu()->notRunningView() &&
               menu()->header()->subtitle() == ui::HeaderView::subtitleFor(std::nullopt);
    }

    void startDaemon()
    {
        daemon = std::make_unique<FakeDaemon>(DaemonClient::socketPath());
        daemon->setHandler([this](const std::string& line) { return faulty(fault, line); });
    }

private slots:
    void initTestCase()
    {
        home = std::make_unique<TestHome>();
        // No session bus: the companion must not find the real desktop's tray.
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + home->path().toUtf8() + "/no-bus");
        startDaemon();
        companion = std::make_unique<app::Companion>();
        companion->openPanel();
        QVERIFY(QTest::qWaitFor([this] { return showsRunning(); }, 2 * kRefreshPeriodMs));
    }

    void matrix_data()
    {
        QTest::addColumn<Fault>("kind");
        QTest::addColumn<bool>("running"); // what the panel must say while the fault lasts
        QTest::newRow("hangs") << Fault::Hang << false;
        QTest::newRow("trickles a byte every 100 ms") << Fault::Trickle << false;
        QTest::newRow("answers garbage") << Fault::Garbage << false;
        QTest::newRow("answers and keeps the connection") << Fault::StayOpen << true;
        QTest::newRow("killed and restarted") << Fault::Killed << false;
    }

    void matrix()
    {
        QFETCH(Fault, kind);
        QFETCH(bool, running);
        QVERIFY(showsRunning());
        const std::string path = DaemonClient::socketPath();
        const int before = daemon->connections();

        if (kind == Fault::Killed)
            daemon.reset();
        else
            fault = kind;

        // A fault is seen within a refresh period plus the exchange's time-out.
        qint64 held = 0;
        const bool seen = waitFor(
            [&] {
                return running ? !showsNotRunning() && daemon->connections() > before + 3
                               : showsNotRunning();
            },
            kRefreshPeriodMs + DaemonClient::kTimeout * 1000 + 1000, held);
        QVERIFY2(seen, "the panel did not show the fault");
        if (running)
            QVERIFY(showsRunning());

        // The fault ends: the daemon is back (restarted, which also drops what it held open).
        fault = Fault::None;
        daemon.reset();
        ::unlink(path.c_str());
        startDaemon();
        QVERIFY2(waitFor([this] { return showsRunning(); }, kRefreshPeriodMs + 1000, held),
                 "the panel did not recover within one refresh period");
        QVERIFY2(held < kMaxGapMs, qPrintable(QString("main thread held %1 ms").arg(held)));
    }
};

QTEST_MAIN(FaultsTest)
#include "tst_faults.moc"
