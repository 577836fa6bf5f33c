// What the user's actions do and say: starting the service, unpairing, sending a test
// notification, the open-at-login switch and its first-launch default, opening the log.

#include "DaemonClient.h"
#include "ModelTestKit.h"
#include "TestHome.h"

#include <QFile>
#include <QSettings>

using namespace harkline;
using namespace harkline::test;

Q_DECLARE_METATYPE(harkline::Json)

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

    void startService_data()
    {
        QTest::addColumn<int>("tool"); // -1 missing, else its exit status
        QTest::addColumn<bool>("daemonUp");
        QTest::addColumn<bool>("restart");
        QTest::addColumn<QString>("notice");
        QTest::addColumn<int>("refreshes");
        const QString notInstalled =
            "The service is not installed. Run `harkline install` in a terminal.";
        QTest::newRow("tool missing") << -1 << false << false << notInstalled << 0;
        QTest::newRow("tool fails") << 1 << false << true << notInstalled << 0;
        QTest::newRow("started, daemon stays down")
            << 0 << false << false << "The service did not start. See the log for the reason." << 1;
        QTest::newRow("restarted, daemon answers") << 0 << true << true << QString() << 1;
    }
    void startService()
    {
        QFETCH(int, tool);
        QFETCH(bool, daemonUp);
        QFETCH(bool, restart);
        QFETCH(QString, notice);
        QFETCH(int, refreshes);
        std::optional<FakeDaemon> daemon;
        if (daemonUp) {
            daemon.emplace(DaemonClient::socketPath());
            daemon->setReplies({{"status", running}});
        }
        FakeDesktop desktop;
        auto env = desktop.environment();
        const QString program =
            tool < 0 ? home->path() + "/no/systemctl" : fakeSystemctl(home->path(), tool);
        env.serviceManager = std::make_shared<SystemdServiceManager>(program);
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
        if (tool >= 0) {
            QFile args(program + ".args");
            QVERIFY(args.open(QIODevice::ReadOnly));
            QCOMPARE(args.readAll().trimmed(), restart
                                                   ? "--user restart com.windmeric.harkline.service"
                                                   : "--user start com.windmeric.harkline.service");
        }
    }

    void revoke_data()
    {
        QTest::addColumn<Json>("reply");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("notice");
        QTest::newRow("removed") << Json{{"ok", true}} << "Work phone"
                                 << "Removed Work phone.";
        QTest::newRow("refused") << Json{{"ok", false}} << "Work phone"
                                 << "Could not remove Work phone.";
        QTest::newRow("no name") << Json{{"ok", true}} << ""
                                 << "Removed .";
    }
    void revoke()
    {
        QFETCH(Json, reply);
        QFETCH(QString, name);
        QFETCH(QString, notice);
        FakeDaemon daemon(DaemonClient::socketPath());
        daemon.setReplies({{"status", running}, {"revoke", reply}});
        FakeDesktop desktop;
        desktop.visible = true;
        AppModel model(desktop.environment());
        QVERIFY(settle(model));
        QSignalSpy refreshes(&model, &AppModel::refreshStarted);
        PairedDevice device;
        device.id = "dev-7";
        device.name = name.toStdString();
        model.revoke(device);
        QVERIFY(settle(model));
        QCOMPARE(model.notice(), std::optional<QString>(notice));
        QCOMPARE(refreshes.count(), 1); // the list changes only through the refresh
        QCOMPARE(refreshes.first().first().toBool(), true);
        const auto requests = daemon.requests();
        QVERIFY(std::any_of(requests.begin(), requests.end(), [](const std::string& line) {
            return Json::parse(line) == Json{{"cmd", "revoke"}, {"id", "dev-7"}};
        }));
    }

    void sendTest_data()
    {
        QTest::addColumn<Json>("emitReply");
        QTest::addColumn<Json>("statusReply");
        QTest::addColumn<QString>("notice");
        QTest::newRow("no daemon") << Json() << running << "The service is not running.";
        QTest::newRow("emit refused")
            << Json{{"ok", false}} << running << "The service is not running.";
        QTest::newRow("one phone") << Json{{"ok", true}} << Json{{"ok", true}, {"connected", 1}}
                                   << "Test notification sent to 1 phone.";
        QTest::newRow("two phones")
            << Json{{"ok", true}} << running << "Test notification sent to 2 phones.";
        QTest::newRow("connected missing") << Json{{"ok", true}} << Json{{"ok", true}}
                                           << "Sent, but no phone is connected right now.";
        QTest::newRow("status refused")
            << Json{{"ok", true}} << Json{{"ok", false}, {"connected", 3}}
            << "Sent, but no phone is connected right now.";
    }
    void sendTest()
    {
        QFETCH(Json, emitReply);
        QFETCH(Json, statusReply);
        QFETCH(QString, notice);
        std::optional<FakeDaemon> daemon; // a null reply: nobody listening
        if (!emitReply.is_null()) {
            daemon.emplace(DaemonClient::socketPath());
            daemon->setReplies({{"emit", emitReply}, {"status", statusReply}});
        }
        FakeDesktop desktop;
        AppModel model(desktop.environment());
        QVERIFY(settle(model));
        QSignalSpy refreshes(&model, &AppModel::refreshStarted);
        model.sendTest();
        QVERIFY(settle(model));
        QCOMPARE(model.notice(), std::optional<QString>(notice));
        QCOMPARE(refreshes.count(), 0);
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
        QSettings settings(home->path() + "/settings.ini", QSettings::IniFormat);
        FakeLoginItem item;
        item.failure = "refused";
        bool flagWrittenFirst = false;
        item.duringRegistration = [&] {
            flagWrittenFirst = QSettings(home->path() + "/settings.ini", QSettings::IniFormat)
                                   .value(kOpenAtLoginDefaultAppliedKey)
                                   .toBool();
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
