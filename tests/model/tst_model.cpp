// The model and the desktop pieces under it, against fakes of the desktop and a scriptable
// daemon in a fresh temporary home per test: the refresh cycle (when the timer refreshes, what
// each refresh applies and in which order, a main thread that never waits), pairing with its QR
// image read back by an independent decoder, the user's actions and what they say, and the
// Linux pieces (the service tool, the autostart entry, the log path, clipboard, visibility).
// (The status symbol is pinned where it is shown: the tray suite and harklinectl.)

#include "ModelKit.h"
#include "QrCode.h"
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
#include <QTimer>

using namespace harkline;
using namespace harkline::test;
using namespace std::chrono_literals;
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

// A stand-in for systemctl that records its arguments and exits with the given status.
QString fakeSystemctl(const QString& folder, int exitStatus)
{
    const QString path = folder + QStringLiteral("/systemctl-%1").arg(exitStatus);
    QFile script(path);
    script.open(QIODevice::WriteOnly);
    script.write(QStringLiteral("#!/bin/sh\necho \"$@\" > \"$0.args\"\necho noise\nexit %1\n")
                     .arg(exitStatus)
                     .toUtf8());
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
}

// What zbarimg reads from the image drawn with the 10-pixel white border the pairing view adds.
QByteArray decode(const QImage& code)
{
    QImage framed(code.width() + 20, code.height() + 20, QImage::Format_Grayscale8);
    framed.fill(0xff);
    for (int y = 0; y < code.height(); ++y)
        std::memcpy(framed.scanLine(y + 10) + 10, code.constScanLine(y), code.width());
    return zbarRead(framed);
}

// A daemon with one phone paired before any offer, and a model on a hidden panel.
struct Pairs
{
    ScriptedDaemon daemon;
    FakeDesktop desktop;
    AppModel model{desktop.environment()};

    Pairs()
    {
        daemon.set([](ScriptedDaemon& d) { d.devices = {phone("a", "Old phone")}; });
    }
    void open()
    {
        model.startPairing();
        QVERIFY(settle(model));
        QVERIFY(model.pairing());
    }
    void tick()
    {
        model.tick();
        QVERIFY(settle(model));
    }
};

void write(const QString& path, const QByteArray& text)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(text);
}

QString makeProgram(const QString& path)
{
    write(path, "#!/bin/sh\n");
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

        QVERIFY2(worstGap < 500, // a wait on the daemon would take a whole time-out
                 qPrintable(QStringLiteral("gap of %1 ms").arg(worstGap)));
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

    void startService()
    {
        const QString notInstalled =
            "The service is not installed. Run `harkline install` in a terminal.";
        struct Row
        {
            int tool; // -1 missing, else its exit status
            bool daemonUp;
            bool restart;
            QString notice;
            int refreshes;
        };
        for (const Row& row :
             {Row{-1, false, false, notInstalled, 0}, Row{1, false, true, notInstalled, 0},
              Row{0, false, false, "The service did not start. See the log for the reason.", 1},
              Row{0, true, true, QString(), 1}}) {
            std::optional<FakeDaemon> daemon;
            if (row.daemonUp) {
                daemon.emplace(DaemonClient::socketPath());
                daemon->setReplies({{"status", running}});
            }
            FakeDesktop desktop;
            auto env = desktop.environment();
            const QString program = row.tool < 0 ? home->path() + "/no/systemctl"
                                                 : fakeSystemctl(home->path(), row.tool);
            env.serviceManager = std::make_shared<SystemdServiceManager>(program);
            AppModel model(env);
            model.sendTest(); // leaves a notice for the start to clear
            QVERIFY(settle(model) && model.notice());

            QSignalSpy refreshSpy(&model, &AppModel::refreshStarted);
            model.startService(row.restart);
            QVERIFY(!model.notice()); // cleared before the tool has even run
            QVERIFY(settle(model));
            QTest::qWait(500); // past both waits (50 ms and 300 ms here)
            QCOMPARE(model.notice().value_or(QString()), row.notice);
            QCOMPARE(refreshSpy.count(), row.refreshes);
            QFile args(program + ".args");
            if (row.tool >= 0 && args.open(QIODevice::ReadOnly))
                QCOMPARE(args.readAll().trimmed(),
                         QByteArray(row.restart ? "--user --no-block restart"
                                                : "--user --no-block start") +
                             " com.windmeric.harkline.service");
            QCOMPARE(args.exists(), row.tool >= 0);
        }
    }

    void revoke()
    {
        for (const bool accepted : {true, false}) {
            FakeDaemon daemon(DaemonClient::socketPath());
            daemon.setReplies({{"status", running}, {"revoke", {{"ok", accepted}}}});
            FakeDesktop desktop;
            desktop.visible = true;
            AppModel model(desktop.environment());
            QVERIFY(settle(model));
            QSignalSpy refreshes(&model, &AppModel::refreshStarted);
            PairedDevice device;
            device.id = "dev-7";
            device.name = "Work\u202e phone\u009c"; // can neither reverse nor cut the notice
            model.revoke(device);
            QVERIFY(settle(model));
            QCOMPARE(model.notice(),
                     text(accepted ? "Removed \u2068Work phone\uFFFD\u2069."
                                   : "Could not remove \u2068Work phone\uFFFD\u2069."));
            QCOMPARE(refreshes.count(), 1); // the list changes only through the refresh
            QCOMPARE(refreshes.first().first().toBool(), true);
        }
    }

    // One phone's sentence and every refusal of emit are harklinectl's cases; a status that
    // says "ok": false counts no phone, whatever else it says.
    void sendTest()
    {
        const std::pair<Json, const char*> rows[] = {
            {running, "Test notification sent to 2 phones."},
            {{{"ok", false}, {"connected", 3}}, "Sent, but no phone is connected right now."}};
        for (const auto& [statusReply, notice] : rows) {
            FakeDaemon daemon(DaemonClient::socketPath());
            daemon.setReplies({{"emit", {{"ok", true}}}, {"status", statusReply}});
            FakeDesktop desktop;
            AppModel model(desktop.environment());
            QVERIFY(settle(model));
            QSignalSpy refreshes(&model, &AppModel::refreshStarted);
            model.sendTest();
            QVERIFY(settle(model));
            QCOMPARE(model.notice(), text(notice));
            QCOMPARE(refreshes.count(), 0);
        }
    }

    void loginToggleReportsFailures()
    {
        // The real entry, its folder blocked by a file: the failure is said, the state kept; then
        // it goes through.
        FakeDesktop desktop;
        auto env = desktop.environment();
        env.loginItem = std::make_shared<XdgAutostartLoginItem>("/usr/bin/harkline-menubar");
        AppModel real(env);
        QFile blocker(home->path() + "/.config/autostart");
        QDir().mkpath(home->path() + "/.config");
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        real.setOpensAtLogin(true);
        QVERIFY(real.notice() && real.notice()->startsWith("Could not change the login item: "));
        QVERIFY(real.notice()->contains(home->path() + "/.config/autostart"));
        QVERIFY(!real.opensAtLogin());
        blocker.remove();
        real.setOpensAtLogin(true);
        QVERIFY(real.opensAtLogin());
    }

    void firstLaunchRegistersOnce()
    {
        const QString file = home->path() + "/settings.ini";
        QSettings settings(file, QSettings::IniFormat);
        FakeLoginItem item;
        item.failure = "refused";
        bool flagWrittenFirst = false;
        item.duringRegistration = [&] {
            flagWrittenFirst =
                QSettings(file, QSettings::IniFormat).value(kOpenAtLoginDefaultAppliedKey).toBool();
        };
        openAtLoginOnFirstLaunch(settings, item);
        QCOMPARE(item.registrations, 1);
        QVERIFY(flagWrittenFirst);
        item.failure.reset();
        openAtLoginOnFirstLaunch(settings, item); // a failed first try is not repeated
        QCOMPARE(item.registrations, 1);
        QCOMPARE(item.statusReads, 0);
        QVERIFY(!item.on);
    }

    void startPairingOpensAnOffer()
    {
        Pairs p;
        p.daemon.set([](ScriptedDaemon& d) { d.devices.push_back(phone("b", "Tablet")); });
        QVERIFY(settle(p.model));
        p.model.copyPairingCode(); // no offer: nothing copied, nothing said
        QVERIFY(p.desktop.clipboard->texts.isEmpty() && !p.model.notice());

        p.open();
        const Pairing& offer = *p.model.pairing();
        QCOMPARE(offer.payload, "hk1:pairing-payload");
        QCOMPARE(offer.expires, p.desktop.now + 120s);
        QCOMPARE(offer.known, (std::set<std::string>{"a", "b"}));
        QVERIFY(!offer.pairedWith);
        QCOMPARE(offer.image, qrCodeImage("hk1:pairing-payload"));
        QVERIFY(p.model.devices().empty()); // nothing published before a phone pairs

        p.model.copyPairingCode();
        QCOMPARE(p.desktop.clipboard->texts, QStringList{"hk1:pairing-payload"});
        QCOMPARE(p.model.notice(), text("Pairing code copied."));
    }

    // A refused offer says so; an offer already on screen survives.
    void refusedOffers()
    {
        for (const Json& refusal :
             {Json{{"ok", false}, {"qr", "x"}}, Json{{"ok", true}, {"qr", ""}},
              Json{{"ok", true}, {"qr", 7}}, Json() /* no daemon */}) {
            FakeDesktop desktop;
            AppModel model(desktop.environment());
            auto daemon = std::make_unique<ScriptedDaemon>();
            model.startPairing();
            QVERIFY(settle(model));
            const auto before = model.pairing();
            QVERIFY(before);
            if (refusal.is_null())
                daemon.reset();
            else
                daemon->set([&](ScriptedDaemon& d) { d.pair = refusal; });
            model.startPairing();
            QVERIFY(settle(model));
            QCOMPARE(model.notice(), text("Could not get a pairing code from the service."));
            QCOMPARE(model.pairing(), before);
        }
    }

    void firstUnknownPhoneIsTheNewOne()
    {
        Pairs p;
        p.open();
        QSignalSpy devicesSpy(&p.model, &AppModel::devicesChanged);
        QSignalSpy pairingSpy(&p.model, &AppModel::pairingChanged);
        p.tick(); // only known phones: nothing published
        QCOMPARE(devicesSpy.count() + pairingSpy.count(), 0);

        p.daemon.set([](ScriptedDaemon& d) {
            d.devices = {phone("c", "Second new"), phone("a", "Old phone"), phone("d", "x")};
        });
        p.tick();
        QCOMPARE(p.model.pairing()->pairedWith, std::optional<std::string>("Second new"));
        QCOMPARE(p.model.devices().size(), 3u);

        const int polls = p.daemon.count("devices"); // paired: polling stops
        p.tick();
        QCOMPARE(p.daemon.count("devices"), polls);
    }

    void expiredOffersAreNotPolled()
    {
        const std::pair<int, int> rows[] = {{0, 0}, {-5, 0}, {30, 30}}; // lifetime, clock advance
        for (const auto& [expiresIn, advance] : rows) {
            Pairs p;
            p.daemon.set([&](ScriptedDaemon& d) { d.pair["expires_in"] = expiresIn; });
            p.open();
            p.desktop.now += std::chrono::seconds(advance);
            p.daemon.set([](ScriptedDaemon& d) { d.devices.push_back(phone("late", "Late")); });
            const int polls = p.daemon.count("devices");
            p.tick();
            QCOMPARE(p.daemon.count("devices"), polls);
            QVERIFY(p.model.pairing() && !p.model.pairing()->pairedWith);
        }
    }

    // A poll still out when its offer is replaced ("New Code") or cancelled publishes nothing,
    // though it sees a new phone; cancelling refreshes once, a summary while hidden.
    void pollsForAnOfferGoneAreDropped()
    {
        for (const bool cancel : {false, true}) {
            Pairs p;
            p.open();
            QSignalSpy devicesSpy(&p.model, &AppModel::devicesChanged);
            QSignalSpy refreshes(&p.model, &AppModel::refreshStarted);
            p.daemon.set([](ScriptedDaemon& d) {
                d.slowDevices = true;
                d.devices.push_back(phone("b", "New"));
            });
            p.model.tick();
            QVERIFY(QTest::qWaitFor([&] { return p.daemon.count("devices") == 2; }));
            p.daemon.set([](ScriptedDaemon& d) {
                d.slowDevices = false;
                d.pair["qr"] = "hk1:second";
            });
            if (cancel) {
                p.model.stopPairing();
                QCOMPARE(refreshes.count(), 1);
                QCOMPARE(refreshes.first().first().toBool(), false);
            } else {
                p.model.startPairing();
                QVERIFY(
                    QTest::qWaitFor([&] { return p.model.pairing()->payload == "hk1:second"; }));
            }
            QVERIFY(settle(p.model));
            QCOMPARE(!p.model.pairing(), cancel);
            QVERIFY(cancel || !p.model.pairing()->pairedWith);
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
            QVERIFY(!code.isNull());
            QCOMPARE(code.width(), code.height());
            QCOMPARE(code.width() % kQrModulePixels, 0);
            QCOMPARE((code.width() / kQrModulePixels - 17) % 4, 0); // 21, 25, ... 177 modules
            QCOMPARE(decode(code), payload);
        }
        // Level M in 8-bit mode holds at most 2,331 bytes.
        QVERIFY(!qrCodeImage(std::string(2331, 'x')).isNull());
        QVERIFY(qrCodeImage(std::string(2332, 'x')).isNull());
        QVERIFY(qrCodeImage("").isNull());
    }

    void serviceTool()
    {
        const QString out = home->path() + "/arg";
        // A missing tool and exit statuses: the model's start-service cases.
        QVERIFY(!runServiceCommand({"/bin/sh", {"-c", "kill -9 $$"}})); // killed: not a success
        // A tool that hangs is killed at the limit and counts as a failure.
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!runServiceCommand({"/bin/sh", {"-c", "exec sleep 30"}},
                                   std::chrono::milliseconds(300)));
        QVERIFY(clock.elapsed() < 10000);
        // No shell of ours in between: an argument arrives whole and unexpanded.
        QVERIFY(runServiceCommand(
            {"/bin/sh", {"-c", "printf %s \"$1\" > \"$2\"", "sh", "a b $HOME;true", out}}));
        QCOMPARE(readFile(out), "a b $HOME;true");
        // systemd is asked by absolute path (its arguments: startService above).
        const SystemdServiceManager systemd;
        QVERIFY(QFileInfo(systemd.command(false).program).isAbsolute());
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
        // An entry from before TryExec: the program comes from Exec, line breaks and all.
        write(entry, XdgAutostartLoginItem::entryText(odd).replace("TryExec=", "X-Old="));
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

    // The daemon's log under an absolute XDG_STATE_HOME, else the usual folder; opening it hands
    // the file over even before it exists, and says nothing. The desktop pieces behind the fakes:
    // a file handed to the desktop as its URL, plain text on the clipboard.
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
        QGuiApplication::clipboard()->setText("old");
        QtClipboard().setText("hk1:Grüße ☕");
        QCOMPARE(QGuiApplication::clipboard()->text(), "hk1:Grüße ☕");
    }

    void menuVisibility()
    {
        const WindowInfo tray{true, kTrayIconWindowClass};
        QVERIFY(!anyMenuWindowVisible({}));
        QVERIFY(!anyMenuWindowVisible({tray, {false, "QWidget"}}));
        QVERIFY(anyMenuWindowVisible({tray, {true, "QWidget"}}));
        QVERIFY(anyMenuWindowVisible({{true, "QSystemTrayIconSysX"}}));
    }
};

QTEST_MAIN(ModelTest)
#include "tst_model.moc"
