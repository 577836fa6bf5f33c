// What the user's actions do and say: starting the service, unpairing, sending a test
// notification, the open-at-login switch and its first-launch default, opening the log.

#include "ModelKit.h"

#include <QFile>
#include <QSettings>

using namespace harkline;
using namespace harkline::test;

namespace {

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

} // namespace

class ModelActionsTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> home;
    const Json running{{"ok", true}, {"name", "harkline"}, {"connected", 2}};

private slots:
    void initTestCase() { home = std::make_unique<TestHome>(); }

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
            const auto sent = daemon.requests();
            QCOMPARE(
                std::count(sent.begin(), sent.end(), "{\"cmd\":\"revoke\",\"id\":\"dev-7\"}\n"), 1);
        }
    }

    void sendTest()
    {
        struct Row
        {
            Json emitReply; // null: nobody listening
            Json statusReply;
            const char* notice;
        };
        const char* noPhone = "Sent, but no phone is connected right now.";
        for (const Row& row : {Row{Json(), running, "The service is not running."},
                               Row{{{"ok", false}}, running, "The service is not running."},
                               Row{{{"ok", true}},
                                   {{"ok", true}, {"connected", 1}},
                                   "Test notification sent to 1 phone."},
                               Row{{{"ok", true}}, running, "Test notification sent to 2 phones."},
                               Row{{{"ok", true}}, {{"ok", true}}, noPhone},
                               Row{{{"ok", true}}, {{"ok", false}, {"connected", 3}}, noPhone}}) {
            std::optional<FakeDaemon> daemon;
            if (!row.emitReply.is_null()) {
                daemon.emplace(DaemonClient::socketPath());
                daemon->setReplies({{"emit", row.emitReply}, {"status", row.statusReply}});
            }
            FakeDesktop desktop;
            AppModel model(desktop.environment());
            QVERIFY(settle(model));
            QSignalSpy refreshes(&model, &AppModel::refreshStarted);
            model.sendTest();
            QVERIFY(settle(model));
            QCOMPARE(model.notice(), text(row.notice));
            QCOMPARE(refreshes.count(), 0);
        }
    }

    void loginToggleReportsFailures()
    {
        FakeDesktop desktop;
        AppModel model(desktop.environment());
        model.setOpensAtLogin(true);
        QVERIFY(model.opensAtLogin() && !model.notice());
        desktop.loginItem->failure = "the disk is full.";
        model.setOpensAtLogin(false);
        QCOMPARE(model.notice(), text("Could not change the login item: the disk is full."));
        QVERIFY(model.opensAtLogin());

        // The real entry: its folder blocked by a file.
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

    void openLogUsesTheStateFolder()
    {
        FakeDesktop desktop;
        AppModel model(desktop.environment());
        model.openLog(); // the file does not exist: still handed over, nothing said
        QCOMPARE(desktop.fileOpener->opened,
                 QStringList{home->path() + "/.local/state/harkline/harkline.log"});
        QVERIFY(!model.notice());
    }
};

QTEST_MAIN(ModelActionsTest)
#include "tst_model_actions.moc"
