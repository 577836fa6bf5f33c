// The autostart entry starts the installed program, and an entry whose program is gone is
// repaired at start rather than left pointing at nothing.

#include "LoginItem.h"
#include "TestHome.h"

#include <QDir>
#include <QFile>
#include <QTest>

using namespace harkline;

namespace {

QString makeProgram(const QString& path)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write("#!/bin/sh\n");
    file.setPermissions(file.permissions() | QFileDevice::ExeOwner);
    return path;
}

QByteArray readEntry()
{
    QFile file(XdgAutostartLoginItem::entryPath());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeEntry(const QByteArray& text)
{
    QDir().mkpath(QFileInfo(XdgAutostartLoginItem::entryPath()).path());
    QFile file(XdgAutostartLoginItem::entryPath());
    file.open(QIODevice::WriteOnly);
    file.write(text);
}

} // namespace

class AutostartTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<test::TestHome> home;

private slots:
    void init() { home = std::make_unique<test::TestHome>(); }
    void cleanup() { home.reset(); }

    void startsTheInstalledProgramByName()
    {
        const QString bin = home->path() + "/usr/bin";
        const QString installed = makeProgram(bin + "/harkline-menubar");
        const QString built = makeProgram(home->path() + "/build/app/harkline-menubar");
        // The file that name finds on the session's PATH: the name, which survives a move.
        QCOMPARE(XdgAutostartLoginItem::execProgram(installed, {bin}), "harkline-menubar");
        QCOMPARE(XdgAutostartLoginItem::execProgram(bin + "/../bin/harkline-menubar", {bin}),
                 "harkline-menubar");
        // A build folder's program of the same name is not the one the name would start.
        QCOMPARE(XdgAutostartLoginItem::execProgram(built, {bin}), built);
        QCOMPARE(XdgAutostartLoginItem::execProgram(installed, {home->path()}), installed);

        XdgAutostartLoginItem item(built);
        QCOMPARE(item.registerItem(), std::nullopt);
        QVERIFY(readEntry().contains("\nTryExec=" + built.toUtf8() + "\n"));
        QCOMPARE(XdgAutostartLoginItem::entryProgram(), built);
    }

    void readsTheProgramBackThroughQuoting()
    {
        const QString odd = home->path() + "/hark line/\"menu\"$%\\x";
        QCOMPARE(XdgAutostartLoginItem(odd).registerItem(), std::nullopt);
        QCOMPARE(XdgAutostartLoginItem::entryProgram(), odd);
        // An entry from before TryExec was written: the program comes from Exec.
        writeEntry(XdgAutostartLoginItem::entryText(odd).replace("TryExec=", "X-Old="));
        QCOMPARE(XdgAutostartLoginItem::entryProgram(), odd);
        writeEntry("[Desktop Entry]\nExec=harkline-menubar --flag\n");
        QCOMPARE(XdgAutostartLoginItem::entryProgram(), "harkline-menubar");
    }

    void repairsOnlyAnEntryWhoseProgramIsGone()
    {
        const QString running = makeProgram(home->path() + "/opt/harkline-menubar");
        XdgAutostartLoginItem item(running);

        QVERIFY(!item.repair()); // no entry: the user never asked to open at login
        QVERIFY(!QFile::exists(XdgAutostartLoginItem::entryPath()));

        const QByteArray kept[] = {
            XdgAutostartLoginItem::entryText(makeProgram(home->path() + "/other/menubar")),
            "[Desktop Entry]\nExec=sh -c true\n",                          // by a name PATH finds
            "[Desktop Entry]\nExec=/gone/harkline-menubar\nHidden=true\n", // switched off
        };
        for (const QByteArray& entry : kept) {
            writeEntry(entry);
            QVERIFY(!item.repair());
            QCOMPARE(readEntry(), entry);
        }

        const QByteArray gone[] = {
            XdgAutostartLoginItem::entryText(home->path() + "/removed/harkline-menubar"),
            "[Desktop Entry]\nExec=\"/usr/bin/no-such-harkline-menubar\"\n",
            "[Desktop Entry]\nTryExec=no-such-harkline-menubar\nExec=sh\n",
            "[Desktop Entry]\nType=Application\n",
        };
        for (const QByteArray& entry : gone) {
            writeEntry(entry);
            QVERIFY(item.repair());
            QVERIFY(item.enabled()); // the user's choice to open at login stays
            QCOMPARE(XdgAutostartLoginItem::entryProgram(), running);
            QVERIFY(!item.repair());
        }
    }
};

QTEST_GUILESS_MAIN(AutostartTest)
#include "tst_autostart.moc"
