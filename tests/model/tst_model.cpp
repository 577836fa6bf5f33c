// The model and the desktop pieces under it, on fakes of the desktop and a scriptable daemon in a
// fresh home per test: the refresh cycle, pairing (its QR code read back by zbarimg), the user's
// actions, the Linux pieces, inert daemon text and relative times in English in any locale.

#include "DisplayText.h"
#include "ModelKit.h"
#include "QrCode.h"
#include "RelativeTime.h"
#include "WindowVisibility.h"
#include "ZbarRead.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QSettings>
#include <QStandardPaths>

using namespace harkline;
using namespace harkline::test;
using namespace std::chrono_literals;

namespace {

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

// A scripted daemon with one phone paired, and a model on a hidden panel, its first refresh done.
struct Rig
{
    ScriptedDaemon daemon;
    FakeDesktop desktop;
    AppModel model{desktop.environment()};

    Rig()
    {
        daemon.set([](ScriptedDaemon& d) { d.devices = {phone("a", "Old phone")}; });
        settle(model);
    }
    void open()
    {
        model.startPairing();
        QVERIFY(settle(model) && model.pairing());
    }
    bool tick()
    {
        model.tick();
        return settle(model);
    }
    bool refresh(bool detailed)
    {
        model.refresh(detailed);
        return settle(model);
    }
};

void write(const QString& path, const QByteArray& text)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(text);
}

QString makeProgram(const QString& path, const QByteArray& script = "#!/bin/sh\n")
{
    write(path, script);
    QFile(path).setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
}

} // namespace

class ModelTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> home;
    QString entry;
    QList<QUrl> opened;
    const Json running{{"ok", true}, {"name", "harkline"}, {"connected", 2}};

public slots:
    void openUrl(const QUrl& url) { opened << url; }

private slots:
    void init()
    {
        home = std::make_unique<TestHome>();
        entry = XdgAutostartLoginItem::entryPath();
    }
    void cleanup() { home.reset(); }

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

    void refreshAppliesStatusThenListsOnlyWhenDetailed()
    {
        Rig r; // hidden: the first refresh was a summary
        QCOMPARE(r.model.status()->port, 7420);
        QVERIFY(r.model.devices().empty() && r.model.sessions().empty());
        QStringList order;
        for (const auto& [signal, name] : {std::pair{&AppModel::statusChanged, "status"},
                                           {&AppModel::devicesChanged, "devices"},
                                           {&AppModel::sessionsChanged, "sessions"},
                                           {&AppModel::pairingChanged, "pairing"},
                                           {&AppModel::noticeChanged, "notice"}})
            connect(&r.model, signal, [&order, n = name] { order << n; });

        r.daemon.set([](ScriptedDaemon& d) {
            d.devices = Json::array({phone("p1", "Pixel")});
            d.sessions = Json::array({session("s1", "working"), session("s2", "ended")});
        });
        QVERIFY(r.refresh(true));
        QCOMPARE(std::exchange(order, {}), (QStringList{"status", "devices", "sessions"}));
        QCOMPARE(r.model.devices().at(0).name, "Pixel");
        QCOMPARE(r.model.sessions().size(), 2u);

        // A summary while the daemon answers: only the status is assigned; the lists stay.
        r.daemon.set([](ScriptedDaemon& d) { d.devices = Json::array(); });
        QVERIFY(r.refresh(false));
        QCOMPARE(std::exchange(order, {}), QStringList{"status"});
        QVERIFY(r.model.devices().size() == 1 && r.model.sessions().size() == 2);

        // Malformed lists: status shown, both lists empty.
        r.daemon.set([](ScriptedDaemon& d) {
            d.devices = Json::array({1});
            d.sessions = "none";
        });
        QVERIFY(r.refresh(true));
        QVERIFY(r.model.status() && r.model.devices().empty() && r.model.sessions().empty());

        // "ok": false is no answer; a summary then empties the lists as a detailed refresh does.
        r.daemon.set([](ScriptedDaemon& d) { d.running = false; });
        order.clear();
        QVERIFY(r.refresh(false));
        QCOMPARE(order, (QStringList{"status", "devices", "sessions"}));
        QVERIFY(!r.model.status() && r.model.devices().empty() && r.model.sessions().empty());
    }

    void everyAssignmentNotifiesAndLateLoadsStillApply()
    {
        Rig r;
        QSignalSpy changed(&r.model, &AppModel::changed);
        r.daemon.set([](ScriptedDaemon& d) {
            d.slow = "status";
            d.status["name"] = "older";
        });
        r.model.refresh(true);
        QVERIFY(QTest::qWaitFor([&] { return r.daemon.count("status") == 2; }));
        r.daemon.set([](ScriptedDaemon& d) {
            d.slow.clear();
            d.status["name"] = "newer"; // same values otherwise
        });
        QVERIFY(r.refresh(true));
        // Nothing coalesced or skipped: both refreshes assigned all three, equal or not, and
        // the older load, ending last, has the last word.
        QCOMPARE(changed.count(), 6);
        QCOMPARE(r.model.status()->name, "older");
    }

    void mainThreadStaysFreeWhileTheDaemonHangs()
    {
        auto daemon = std::make_unique<FakeDaemon>(DaemonClient::socketPath());
        daemon->setHandler([](const std::string&) { return FakeDaemon::Script::never(); });
        FakeDesktop desktop;
        desktop.visible = true;
        AppModel model(desktop.environment());

        QElapsedTimer clock;
        clock.start();
        for (int i = 0; i < 30; ++i) {
            model.tick();
            if (i < 12)
                model.refresh(true);
        }
        model.startPairing();
        model.sendTest();
        model.revoke(PairedDevice{});
        QTest::qWait(800);
        // A wait on the daemon would cost a whole time-out (3 s) on top of the 800 ms.
        QVERIFY2(clock.elapsed() < 2800, qPrintable(QString::number(clock.elapsed())));
        // All reached the daemon together: the first refresh, eight of the eleven due ticks' (the
        // cap), the explicit ones, and each action, which hung timer refreshes never hold back.
        QCOMPARE(model.timerTasksInFlight(), AppModel::kMaxTimerTasks);
        QCOMPARE(daemon->connections(), 1 + AppModel::kMaxTimerTasks + 12 + 3);

        daemon.reset(); // releases the hung connections
        QVERIFY(settle(model));
        QVERIFY(!model.status());
    }

    void startService()
    {
        const QString notInstalled =
            "The service is not installed. Run `harkline install` in a terminal.";
        using Row = std::tuple<int, bool, bool, QString, int>;
        for (const auto& [exit, daemonUp, restart, notice, refreshes] : // exit -1: no tool
             {Row{-1, false, false, notInstalled, 0}, Row{1, false, true, notInstalled, 0},
              Row{0, false, false, "The service did not start. See the log for the reason.", 1},
              Row{0, true, true, QString(), 1}}) {
            ScriptedDaemon daemon;
            daemon.set([up = daemonUp](ScriptedDaemon& d) { d.running = up; });
            const QString tool = home->path() + QStringLiteral("/systemctl%1").arg(exit);
            if (exit >= 0) // records its arguments
                makeProgram(tool, QStringLiteral("#!/bin/sh\necho \"$@\" > \"$0.args\"\n"
                                                 "echo noise\nexit %1\n")
                                      .arg(exit)
                                      .toUtf8());
            FakeDesktop desktop;
            auto env = desktop.environment();
            env.serviceManager = std::make_shared<SystemdServiceManager>(tool);
            AppModel model(env);
            model.sendTest(); // leaves a notice for the start to clear
            QVERIFY(settle(model) && model.notice());

            QSignalSpy refreshSpy(&model, &AppModel::refreshStarted);
            model.startService(restart);
            QVERIFY(!model.notice()); // cleared before the tool has even run
            QVERIFY(settle(model));
            QTest::qWait(500); // past both waits (50 ms and 300 ms here)
            QCOMPARE(model.notice().value_or(QString()), notice);
            QCOMPARE(refreshSpy.count(), refreshes);
            QCOMPARE(readFile(tool + ".args"), exit < 0 ? QByteArray("(missing)")
                                                        : QByteArray("--user --no-block ") +
                                                              (restart ? "restart" : "start") +
                                                              " com.windmeric.harkline.service\n");
        }
    }

    // What the phone actions say, naming a phone inertly. Removing one refreshes the list (in
    // detail on the open panel), a test does not. One phone's sentence and every refusal of emit
    // are harklinectl's cases; a status that says "ok": false counts no phone.
    void phoneActions()
    {
        const PairedDevice device(phone("dev-7", "Work\u202e phone\u009c"));
        using Row = std::tuple<bool, Json, const char*>; // the reply: to the revoke, or the status
        for (const auto& [revoke, reply, notice] :
             {Row{true, Json{{"ok", true}}, "Removed \u2068Work phone\uFFFD\u2069."},
              Row{true, Json{{"ok", false}}, "Could not remove \u2068Work phone\uFFFD\u2069."},
              Row{false, running, "Test notification sent to 2 phones."},
              Row{false, Json{{"ok", false}, {"connected", 3}},
                  "Sent, but no phone is connected right now."}}) {
            Rig r;
            r.desktop.visible = true;
            r.daemon.set([revoke = revoke, reply = reply](ScriptedDaemon& d) {
                (revoke ? d.other : d.status) = reply;
            });
            QSignalSpy refreshes(&r.model, &AppModel::refreshStarted);
            revoke ? r.model.revoke(device) : r.model.sendTest();
            QVERIFY(settle(r.model));
            QCOMPARE(r.model.notice(), text(notice));
            QCOMPARE(refreshes.count(), int(revoke));
            QVERIFY(!revoke || refreshes.first().first().toBool());
        }
    }

    // Once: a failed first try is not repeated.
    void firstLaunchRegistersOnce()
    {
        QSettings settings(home->path() + "/settings.ini", QSettings::IniFormat);
        FakeLoginItem item;
        item.failure = "refused";
        openAtLoginOnFirstLaunch(settings, item);
        QCOMPARE(item.registrations, 1);
        item.failure.reset();
        openAtLoginOnFirstLaunch(settings, item);
        QVERIFY(item.registrations == 1 && item.statusReads == 0 && !item.on);
    }

    void startPairingOpensAnOffer()
    {
        Rig r;
        r.daemon.set([](ScriptedDaemon& d) { d.devices.push_back(phone("b", "Tablet")); });
        r.model.copyPairingCode(); // no offer: nothing copied, nothing said
        QVERIFY(r.desktop.clipboard->texts.isEmpty() && !r.model.notice());

        r.open();
        const Pairing& offer = *r.model.pairing();
        QCOMPARE(offer.payload, "hk1:pairing-payload");
        QCOMPARE(offer.expires, r.desktop.now + 120s);
        QCOMPARE(offer.known, (std::set<std::string>{"a", "b"}));
        QVERIFY(!offer.pairedWith);
        QCOMPARE(offer.image, qrCodeImage("hk1:pairing-payload"));
        QVERIFY(r.model.devices().empty()); // nothing published before a phone pairs

        r.model.copyPairingCode();
        QCOMPARE(r.desktop.clipboard->texts, QStringList{"hk1:pairing-payload"});
        QCOMPARE(r.model.notice(), text("Pairing code copied."));
    }

    // A refused offer says so; an offer already on screen survives.
    void refusedOffers()
    {
        for (const Json& refusal :
             {Json{{"ok", false}, {"qr", "x"}}, Json{{"ok", true}, {"qr", ""}},
              Json{{"ok", true}, {"qr", 7}}}) {
            Rig r;
            r.open();
            const auto before = r.model.pairing();
            r.daemon.set([&](ScriptedDaemon& d) { d.pair = refusal; });
            r.model.startPairing();
            QVERIFY(settle(r.model));
            QCOMPARE(r.model.notice(), text("Could not get a pairing code from the service."));
            QCOMPARE(r.model.pairing(), before);
        }
    }

    // The first phone the offer did not know is the new one, and polling stops then; an expired
    // offer is not polled at all.
    void offersFindTheNewPhoneUntilTheyExpire()
    {
        const std::pair<int, int> rows[] = {
            {120, 0}, {0, 0}, {-5, 0}, {30, 30}}; // lifetime, advance
        for (const auto& [expiresIn, advance] : rows) {
            Rig r;
            r.daemon.set([&, in = expiresIn](ScriptedDaemon& d) { d.pair["expires_in"] = in; });
            r.open();
            QSignalSpy published(&r.model, &AppModel::changed);
            QVERIFY(r.tick()); // only known phones: nothing published
            QCOMPARE(published.count(), 0);
            r.desktop.now += std::chrono::seconds(advance);
            r.daemon.set([](ScriptedDaemon& d) {
                d.devices = {phone("c", "Second new"), phone("a", "Old phone"), phone("d", "x")};
            });
            const bool live = expiresIn > advance;
            for (const int due : {int(live), 0}) {
                const int polls = r.daemon.count("devices");
                QVERIFY(r.tick());
                QCOMPARE(r.daemon.count("devices") - polls, due);
            }
            QCOMPARE(r.model.pairing()->pairedWith,
                     live ? std::optional<std::string>("Second new") : std::nullopt);
            QCOMPARE(r.model.devices().size(), live ? 3u : 0u);
        }
    }

    // A poll still out when its offer is replaced ("New Code") or cancelled publishes nothing,
    // though it sees a new phone; cancelling refreshes once, a summary while hidden.
    void pollsForAnOfferGoneAreDropped()
    {
        for (const bool cancel : {false, true}) {
            Rig r;
            r.open();
            QSignalSpy devicesSpy(&r.model, &AppModel::devicesChanged);
            QSignalSpy refreshes(&r.model, &AppModel::refreshStarted);
            r.daemon.set([](ScriptedDaemon& d) {
                d.slow = "devices";
                d.devices.push_back(phone("b", "New"));
            });
            const int polls = r.daemon.count("devices");
            r.model.tick();
            QVERIFY(QTest::qWaitFor([&] { return r.daemon.count("devices") > polls; }));
            r.daemon.set([](ScriptedDaemon& d) {
                d.slow.clear();
                d.pair["qr"] = "hk1:second";
            });
            if (cancel) {
                r.model.stopPairing();
                QCOMPARE(refreshes.count(), 1);
                QCOMPARE(refreshes.first().first().toBool(), false);
            } else {
                r.model.startPairing();
                QVERIFY(
                    QTest::qWaitFor([&] { return r.model.pairing()->payload == "hk1:second"; }));
            }
            QVERIFY(settle(r.model));
            QCOMPARE(!r.model.pairing(), cancel);
            QVERIFY(cancel || !r.model.pairing()->pairedWith);
            QCOMPARE(devicesSpy.count(), 0);
        }
    }

    void qrCodeReadsBackByteForByte()
    {
        QVERIFY2(!QStandardPaths::findExecutable("zbarimg").isEmpty(), "zbar-tools is missing");
        for (const QByteArray& payload :
             {QByteArray("harkline://pair?h=192.168.1.20&p=8080&k=Zm9vYmFy"),
              QByteArray("Café ☕ 東京 — Grüße 🙂"), QByteArray(1200, 'x').append("é")}) {
            const QImage code = qrCodeImage(payload.toStdString());
            QCOMPARE(zbarRead(code, 10), payload); // the pairing view's border
        }
        // Level M in 8-bit mode holds at most 2,331 bytes.
        QVERIFY(!qrCodeImage(std::string(2331, 'x')).isNull());
        QVERIFY(qrCodeImage(std::string(2332, 'x')).isNull());
        QVERIFY(qrCodeImage("").isNull());
    }

    void serviceTool()
    {
        QVERIFY(!runServiceCommand({"/bin/sh", {"-c", "kill -9 $$"}})); // killed: not a success
        // A tool that hangs is killed at the limit and counts as a failure.
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!runServiceCommand({"/bin/sh", {"-c", "exec sleep 30"}},
                                   std::chrono::milliseconds(300)));
        QVERIFY(clock.elapsed() < 10000);
    }

    // The entry's folder follows an absolute XDG_CONFIG_HOME; its Exec quotes any path so that
    // it reads back whole, and Hidden=true in the main group switches it off.
    void autostartEntry()
    {
        qputenv("XDG_CONFIG_HOME", "relative/config"); // invalid, so ignored
        QCOMPARE(XdgAutostartLoginItem::entryPath(),
                 home->path() + "/.config/autostart/harkline-menubar.desktop");
        qputenv("XDG_CONFIG_HOME", (home->path() + "/cfg").toUtf8());
        entry = home->path() + "/cfg/autostart/harkline-menubar.desktop";
        QCOMPARE(XdgAutostartLoginItem::entryPath(), entry);

        const QString odd = home->path() + "/hark line/\"menu\"$%\\x\n\t\r";
        XdgAutostartLoginItem item(odd);
        QVERIFY(!item.enabled());
        QCOMPARE(item.unregisterItem(), std::nullopt); // nothing to remove is no failure
        QCOMPARE(item.registerItem(), std::nullopt);
        QVERIFY(item.enabled());
        QVERIFY(
            readFile(entry).contains("\nExec=\"" + home->path().toUtf8() +
                                     "/hark line/\\\\\"menu\\\\\"\\\\$%%\\\\\\\\x\\n\\t\\r\"\n"));
        QCOMPARE(XdgAutostartLoginItem::entryProgram(), odd);
        write(entry, "[Desktop Entry]\nExec=harkline-menubar --flag\n");
        QCOMPARE(XdgAutostartLoginItem::entryProgram(), "harkline-menubar");

        const auto hidden = [&](const QByteArray& extra) {
            write(entry, "[Desktop Entry]\nType=Application\nExec=x\n" + extra);
            return !item.enabled();
        };
        QVERIFY(hidden("Hidden=true\n") && hidden("Hidden = true\n"));
        QVERIFY(!hidden("Hidden=false\n") && !hidden("[Desktop Action x]\nHidden=true\n"));
        write(entry, "Hidden=true\n[Desktop Entry]\nExec=x\n"); // before any group: no key of it
        QVERIFY(item.enabled());
        QCOMPARE(item.unregisterItem(), std::nullopt);
        QVERIFY(!QFile::exists(entry) && !item.enabled());

        // Repaired only when the program it starts is gone, for the program now running.
        const QString running = makeProgram(home->path() + "/opt/harkline-menubar");
        XdgAutostartLoginItem fresh(running);
        QVERIFY(!fresh.repair()); // no entry: the user never asked to open at login
        QVERIFY(!QFile::exists(entry));
        for (const QByteArray& kept : {
                 XdgAutostartLoginItem::entryText(makeProgram(home->path() + "/other/menubar")),
                 QByteArray("[Desktop Entry]\nExec=sh -c true\n"), // by a name PATH finds
                 QByteArray("[Desktop Entry]\nExec=/gone/harkline-menubar\nHidden=true\n"),
             }) {
            write(entry, kept);
            QVERIFY(!fresh.repair());
            QCOMPARE(readFile(entry), kept);
        }
        for (const QByteArray& gone : {
                 XdgAutostartLoginItem::entryText(home->path() + "/removed/harkline-menubar"),
                 QByteArray("[Desktop Entry]\nExec=\"/usr/bin/no-such-harkline-menubar\"\n"),
                 QByteArray("[Desktop Entry]\nTryExec=no-such-harkline-menubar\nExec=sh\n"),
                 QByteArray("[Desktop Entry]\nType=Application\n"),
             }) {
            write(entry, gone);
            QVERIFY(fresh.repair());
            QVERIFY(fresh.enabled()); // the user's choice to open at login stays
            QCOMPARE(XdgAutostartLoginItem::entryProgram(), running);
            QVERIFY(!fresh.repair());
        }

        // By name when that name finds this very file on the session's PATH, which survives a
        // move; a build folder's program of the same name is not the one the name would start.
        const QString bin = home->path() + "/usr/bin";
        const QString installed = makeProgram(bin + "/harkline-menubar");
        const QString built = makeProgram(home->path() + "/build/app/harkline-menubar");
        QCOMPARE(XdgAutostartLoginItem::execProgram(installed, {bin}), "harkline-menubar");
        QCOMPARE(XdgAutostartLoginItem::execProgram(bin + "/../bin/harkline-menubar", {bin}),
                 "harkline-menubar");
        QCOMPARE(XdgAutostartLoginItem::execProgram(built, {bin}), built);
        QCOMPARE(XdgAutostartLoginItem::execProgram(installed, {home->path()}), installed);
        QCOMPARE(XdgAutostartLoginItem(built).registerItem(), std::nullopt);
        QVERIFY(readFile(entry).contains("\nTryExec=" + built.toUtf8() + "\n"));
    }

    // The daemon's log under an absolute XDG_STATE_HOME, else the usual folder, handed to the
    // desktop as a file URL even before it exists, silently. Copied text is plain.
    void logAndDesktopPieces()
    {
        const QString usual = home->path() + "/.local/state/harkline/harkline.log";
        FakeDesktop desktop;
        AppModel model(desktop.environment());
        model.openLog();
        QCOMPARE(desktop.fileOpener->opened, QStringList{usual});
        QVERIFY(!model.notice());
        for (const char* ignored : {"", "relative/state"}) {
            qputenv("XDG_STATE_HOME", ignored);
            QCOMPARE(daemonLogPath(), usual);
        }
        qputenv("XDG_STATE_HOME", "/var/tmp/st");
        QCOMPARE(daemonLogPath(), "/var/tmp/st/harkline/harkline.log");

        QDesktopServices::setUrlHandler("file", this, "openUrl");
        DesktopFileOpener().open("/var/log/a b#1.log");
        QDesktopServices::unsetUrlHandler("file");
        QCOMPARE(opened, QList<QUrl>{QUrl::fromLocalFile("/var/log/a b#1.log")});
        QtClipboard().setText("hk1:Grüße ☕");
        QCOMPARE(QGuiApplication::clipboard()->text(), "hk1:Grüße ☕");
    }

    // Any window of ours on screen but the X11 tray icon's own counts as the open panel.
    void menuVisibility()
    {
        const WindowInfo tray{true, kTrayIconWindowClass};
        QVERIFY(!anyMenuWindowVisible({}) && !anyMenuWindowVisible({tray, {false, "QWidget"}}));
        QVERIFY(anyMenuWindowVisible({tray, {true, "QWidget"}}));
        QVERIFY(anyMenuWindowVisible({{true, "QSystemTrayIconSysX"}}));
    }

    void inert()
    {
        const QString fsi(QChar(0x2068)), pdi(QChar(0x2069)), bad(QChar(0xFFFD));
        using Row = std::tuple<const char*, QString, QString>; // in, as one line, as many
        for (const auto& [in, one, many] : {
                 Row{"plain", "plain", "plain"},
                 // Qt's alternative-text separator, other C1, C0 and DEL: visible marks.
                 Row{"x\u009cApproved", "x" + bad + "Approved", "x" + bad + "Approved"},
                 Row{"a\u0085b\u0080c\u001bd\u007fe", "a b" + bad + "c" + bad + "d" + bad + "e",
                     "a\nb" + bad + "c" + bad + "d" + bad + "e"},
                 // Layout whitespace: one break per CR LF, tabs as spaces.
                 Row{"1\r\n2\r3\u20284\t5\r\n", "1 2 3 4 5 ", "1\n2\n3\n4 5\n"},
                 // Overrides, embeddings and isolates cannot leak out.
                 Row{"ab\u202e:8080\u2069\u202a\u2066x", "ab:8080x", "ab:8080x"},
             }) {
            QCOMPARE(inertText(std::string_view(in), TextLines::One), one);
            QCOMPARE(inertText(std::string_view(in), TextLines::Many), many);
        }
        QCOMPARE(daemonText("Pixel"), fsi + "Pixel" + pdi);
        QCOMPARE(daemonText(""), QString());
    }

    void phrase()
    {
        // A Tuesday in November, far from daylight-saving changes in any zone.
        const DaemonTime textsNow = DaemonTime(std::chrono::seconds(1'700'000'000));
        using Row = std::pair<double, const char*>; // seconds from now, negative for the past
        for (const auto& [offset, en] :
             {Row{0.0, "now"}, Row{-0.9, "now"}, Row{0.4, "now"}, // daemon clock a little ahead
              Row{-59.9, "59 sec. ago"}, Row{-300.0, "5 min. ago"}, Row{-5400.0, "1 hr. ago"},
              Row{-3 * 86400.0, "3 days ago"}, Row{-13 * 86400.0, "1 wk. ago"},
              Row{-45 * 86400.0, "1 mo. ago"}, Row{-400 * 86400.0, "1 yr. ago"},
              Row{3600.0, "in 1 hr."}}) {
            const DaemonTime when = textsNow + std::chrono::duration<double>(offset);
            QCOMPARE(relativeTimePhrase(when, textsNow, "en_US"), QString(en));
        }
        // The interface is English: a German locale keeps only its region's way of writing it.
        // Without a locale, the environment's: main() sets LC_ALL before ICU reads it.
        QCOMPARE(relativeTimePhrase(textsNow - 5min, textsNow, "de_DE"), "5 min ago");
        QCOMPARE(relativeTimePhrase(textsNow - 2h, textsNow), "2 hr ago");
    }
};

int main(int argc, char** argv)
{
    qputenv("LC_ALL", "de_DE.UTF-8"); // before ICU first reads it
    QGuiApplication app(argc, argv);
    ModelTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_model.moc"
