// The desktop pieces on Linux: how the service tool is run, the autostart entry that must start
// the installed program (and is repaired when its program is gone), the log path, the clipboard,
// the menu-visibility rule.

#include "Desktop.h"
#include "LoginItem.h"
#include "ServiceManager.h"
#include "TestHome.h"
#include "WindowVisibility.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QTest>

using namespace harkline;
using namespace harkline::test;

namespace {

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(missing)");
}

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

class ModelPlatformTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> home;
    QString entry;
    QList<QUrl> opened;

public slots:
    void openUrl(const QUrl& url) { opened << url; }

private slots:
    void init()
    {
        home = std::make_unique<TestHome>();
        entry = XdgAutostartLoginItem::entryPath();
    }
    void cleanup() { home.reset(); }

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

    // The entry's folder follows an absolute XDG_CONFIG_HOME; its Exec quotes any path so that
    // it reads back whole, and Hidden=true in the main group switches it off.
    void autostartEntryRoundTrips()
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
            readAll(entry).contains("\nExec=\"" + home->path().toUtf8() +
                                    "/hark line/\\\\\"menu\\\\\"\\\\$%%\\\\\\\\x\\n\\t\\r\"\n"));
        QCOMPARE(XdgAutostartLoginItem::entryProgram(), odd);
        // An entry from before TryExec was written: the program comes from Exec, line breaks and
        // all.
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
        QCOMPARE(item.unregisterItem(), std::nullopt);
        QVERIFY(!QFile::exists(entry) && !item.enabled());
    }

    // By name when that name finds this very file on the session's PATH, which survives a move;
    // a build folder's program of the same name is not the one the name would start.
    void autostartStartsTheInstalledProgramByName()
    {
        const QString bin = home->path() + "/usr/bin";
        const QString installed = makeProgram(bin + "/harkline-menubar");
        const QString built = makeProgram(home->path() + "/build/app/harkline-menubar");
        QCOMPARE(XdgAutostartLoginItem::execProgram(installed, {bin}), "harkline-menubar");
        QCOMPARE(XdgAutostartLoginItem::execProgram(bin + "/../bin/harkline-menubar", {bin}),
                 "harkline-menubar");
        QCOMPARE(XdgAutostartLoginItem::execProgram(built, {bin}), built);
        QCOMPARE(XdgAutostartLoginItem::execProgram(installed, {home->path()}), installed);
        QCOMPARE(XdgAutostartLoginItem(built).registerItem(), std::nullopt);
        QVERIFY(readAll(entry).contains("\nTryExec=" + built.toUtf8() + "\n"));
    }

    void autostartRepairsOnlyAnEntryWhoseProgramIsGone()
    {
        const QString running = makeProgram(home->path() + "/opt/harkline-menubar");
        XdgAutostartLoginItem item(running);
        QVERIFY(!item.repair()); // no entry: the user never asked to open at login
        QVERIFY(!QFile::exists(entry));
        for (const QByteArray& kept : {
                 XdgAutostartLoginItem::entryText(makeProgram(home->path() + "/other/menubar")),
                 QByteArray("[Desktop Entry]\nExec=sh -c true\n"), // by a name PATH finds
                 QByteArray("[Desktop Entry]\nExec=/gone/harkline-menubar\nHidden=true\n"),
             }) {
            write(entry, kept);
            QVERIFY(!item.repair());
            QCOMPARE(readAll(entry), kept);
        }
        for (const QByteArray& gone : {
                 XdgAutostartLoginItem::entryText(home->path() + "/removed/harkline-menubar"),
                 QByteArray("[Desktop Entry]\nExec=\"/usr/bin/no-such-harkline-menubar\"\n"),
                 QByteArray("[Desktop Entry]\nTryExec=no-such-harkline-menubar\nExec=sh\n"),
                 QByteArray("[Desktop Entry]\nType=Application\n"),
             }) {
            write(entry, gone);
            QVERIFY(item.repair());
            QVERIFY(item.enabled()); // the user's choice to open at login stays
            QCOMPARE(XdgAutostartLoginItem::entryProgram(), running);
            QVERIFY(!item.repair());
        }
    }

    void logPath()
    {
        const QString usual = home->path() + "/.local/state/harkline/harkline.log";
        for (const char* ignored : {"", "relative/state"}) {
            qputenv("XDG_STATE_HOME", ignored);
            QCOMPARE(daemonLogPath(), usual);
        }
        qputenv("XDG_STATE_HOME", "/var/tmp/st");
        QCOMPARE(daemonLogPath(), "/var/tmp/st/harkline/harkline.log");
        QCOMPARE(macDaemonLogPath("/Users/ada"), "/Users/ada/Library/Logs/harkline.log");
    }

    void fileOpenerHandsTheFileToTheDesktop()
    {
        QDesktopServices::setUrlHandler("file", this, "openUrl");
        DesktopFileOpener().open("/var/log/a b#1.log");
        QDesktopServices::unsetUrlHandler("file");
        QCOMPARE(opened, QList<QUrl>{QUrl::fromLocalFile("/var/log/a b#1.log")});
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
