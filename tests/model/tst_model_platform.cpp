// The desktop pieces on Linux: how the service tool is run, the autostart entry, the log path,
// the clipboard, the menu-visibility rule.

#include "Desktop.h"
#include "LoginItem.h"
#include "ServiceManager.h"
#include "TestHome.h"
#include "WindowVisibility.h"

#include <QClipboard>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QTest>

using namespace harkline;
using namespace harkline::test;

class ModelPlatformTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> home;

    static QByteArray readAll(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(missing)");
    }

private slots:
    void initTestCase() { home = std::make_unique<TestHome>(); }

    void serviceTool()
    {
        const QString out = home->path() + "/arg";
        QVERIFY(!runServiceCommand({home->path() + "/missing-tool", {}}));
        QVERIFY(runServiceCommand({"/bin/sh", {"-c", "echo chatter; exit 0"}}));
        QVERIFY(!runServiceCommand({"/bin/sh", {"-c", "exit 3"}}));
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
        QCOMPARE(readAll(out), "a b $HOME;true");
        // systemd is asked by absolute path, without waiting for the start job.
        const SystemdServiceManager systemd;
        QVERIFY(QFileInfo(systemd.command(false).program).isAbsolute());
        QCOMPARE(systemd.command(true).arguments,
                 (QStringList{"--user", "--no-block", "restart", SystemdServiceManager::kUnit}));
        // On macOS a restart is a kickstart that kills first.
        QCOMPARE(launchd::kickstart(true, 501).arguments,
                 (QStringList{"kickstart", "-k", "gui/501/com.windmeric.harkline"}));
        QVERIFY(!launchd::kickstart(false, 501).arguments.contains("-k"));
    }

    void autostartEntry()
    {
        qputenv("XDG_CONFIG_HOME", "relative/config"); // invalid, so ignored
        QCOMPARE(XdgAutostartLoginItem::entryPath(),
                 home->path() + "/.config/autostart/harkline-menubar.desktop");
        qputenv("XDG_CONFIG_HOME", (home->path() + "/cfg").toUtf8());
        const QString path = home->path() + "/cfg/autostart/harkline-menubar.desktop";
        QCOMPARE(XdgAutostartLoginItem::entryPath(), path);

        XdgAutostartLoginItem item("/opt/hark line/bin/\"menu\"$%");
        QVERIFY(!item.enabled());
        QCOMPARE(item.unregisterItem(), std::nullopt); // nothing to remove is no failure
        QCOMPARE(item.registerItem(), std::nullopt);
        QVERIFY(item.enabled());
        QVERIFY(readAll(path).contains("\nExec=\"/opt/hark line/bin/\\\\\"menu\\\\\"\\\\$%%\"\n"));

        const auto hidden = [&](const QByteArray& extra) {
            QFile file(path);
            file.open(QIODevice::WriteOnly);
            file.write("[Desktop Entry]\nType=Application\nExec=x\n" + extra);
            file.close();
            return !item.enabled();
        };
        QVERIFY(hidden("Hidden=true\n") && hidden("Hidden = true\n"));
        QVERIFY(!hidden("Hidden=false\n") && !hidden("[Desktop Action x]\nHidden=true\n"));
        QCOMPARE(item.unregisterItem(), std::nullopt);
        QVERIFY(!QFile::exists(path) && !item.enabled());
        qputenv("XDG_CONFIG_HOME", (home->path() + "/.config").toUtf8());
    }

    void logPath()
    {
        const QString usual = home->path() + "/.local/state/harkline/harkline.log";
        QCOMPARE(daemonLogPath(), usual);
        qputenv("XDG_STATE_HOME", "");
        QCOMPARE(daemonLogPath(), usual);
        qputenv("XDG_STATE_HOME", "/var/tmp/st");
        QCOMPARE(daemonLogPath(), "/var/tmp/st/harkline/harkline.log");
        qputenv("XDG_STATE_HOME", (home->path() + "/.local/state").toUtf8());
    }

    void clipboardTakesPlainText()
    {
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
        QVERIFY(
            !anyMenuWindowVisible({{true, kMacStatusBarWindowClass}}, kMacStatusBarWindowClass));
    }
};

QTEST_MAIN(ModelPlatformTest)
#include "tst_model_platform.moc"
