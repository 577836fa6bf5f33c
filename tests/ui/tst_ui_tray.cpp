// The companion as a program on a real X server (Xvfb) with a private session bus and a tray
// host of our own: it registers its item also when the host comes late, its icon follows the
// daemon, and activating the item (or starting the program again) opens the panel, which asks
// for a detailed refresh.

#include "Looks.h"
#include "ModelKit.h"
#include "SniWatcher.h"

#include <QDBusConnection>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

using namespace harkline;
using namespace harkline::test;

namespace {

// The first image of an IconPixmap property as busctl prints it: [[width, height, [ARGB bytes
// in network order]], ...].
QImage firstPixmap(const QJsonArray& pixmaps)
{
    const QJsonArray first = pixmaps.at(0).toArray(), argb = first.at(2).toArray();
    QImage image(first.at(0).toInt(), first.at(1).toInt(), QImage::Format_ARGB32);
    for (int i = 0; i < image.width() * image.height() && 4 * i + 3 < argb.size(); ++i)
        image.setPixel(i % image.width(), i / image.width(),
                       qRgba(argb[4 * i + 1].toInt(), argb[4 * i + 2].toInt(),
                             argb[4 * i + 3].toInt(), argb[4 * i].toInt()));
    return image;
}

// Which of the three bells an image shows: the one whose own drawing it is closest to.
QString bellIn(const QImage& image)
{
    QString best;
    qint64 bestDistance = -1;
    for (const char* name : {"bell", "bell.badge", "bell.slash"}) {
        const QImage expected = ui::looks::traySymbol(name)
                                    .pixmap(image.size())
                                    .toImage()
                                    .convertToFormat(QImage::Format_ARGB32);
        qint64 distance = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                distance += std::abs(qAlpha(image.pixel(x, y)) - qAlpha(expected.pixel(x, y))) +
                            std::abs(qGray(image.pixel(x, y)) - qGray(expected.pixel(x, y)));
        if (bestDistance < 0 || distance < bestDistance)
            bestDistance = distance, best = name;
    }
    return best;
}

// A program kept until the end of the test; stopped and reaped on the way out.
struct Child
{
    QProcess process;
    ~Child() { stop(); }
    void stop()
    {
        if (process.state() == QProcess::NotRunning)
            return;
        process.terminate();
        if (!process.waitForFinished(3000)) {
            process.kill();
            process.waitForFinished(3000);
        }
    }
};

} // namespace

class TrayTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    Child m_xvfb;
    Child m_bus;
    QString m_display;
    QString m_busAddress;

    void startCompanion(Child& companion)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove("QT_QPA_PLATFORM");
        env.insert("DISPLAY", m_display);
        env.insert("DBUS_SESSION_BUS_ADDRESS", m_busAddress);
        // A runtime folder of its own: a companion the user runs must not answer for this one.
        const QString runtime = m_dir.filePath("runtime");
        QDir().mkpath(runtime);
        QFile::setPermissions(runtime, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                           QFileDevice::ExeOwner);
        env.insert("XDG_RUNTIME_DIR", runtime);
        companion.process.setProcessEnvironment(env);
        companion.process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        companion.process.start(HARKLINE_MENUBAR);
        QVERIFY(companion.process.waitForStarted());
    }

    // What busctl says to `args` on the private bus: the data of its JSON answer.
    QJsonValue busctl(const QStringList& args) const
    {
        QProcess busctl;
        busctl.start("busctl",
                     QStringList{"--address=" + m_busAddress, "--json=short", "--"} + args);
        busctl.waitForFinished(5000);
        return QJsonDocument::fromJson(busctl.readAllStandardOutput())["data"];
    }
    QJsonValue property(const SniWatcher::Item& item, const char* name) const
    {
        return busctl(
            {"get-property", item.service, item.path, "org.kde.StatusNotifierItem", name});
    }
    QString shownBell(const SniWatcher::Item& item) const
    {
        const QImage image = firstPixmap(property(item, "IconPixmap").toArray());
        return image.isNull() ? QString() : bellIn(image);
    }

private slots:
    void initTestCase()
    {
        const QString xvfb = QStandardPaths::findExecutable("Xvfb");
        const QString dbus = QStandardPaths::findExecutable("dbus-daemon");
        if (xvfb.isEmpty() || dbus.isEmpty())
            QSKIP("needs Xvfb and dbus-daemon (packages xvfb and dbus)");
        QVERIFY(QFileInfo::exists(HARKLINE_MENUBAR));

        // A display number nobody uses.
        for (int n = 90 + (QCoreApplication::applicationPid() % 50); n < 200; ++n)
            if (!QFileInfo::exists(QString("/tmp/.X11-unix/X%1").arg(n)) &&
                !QFileInfo::exists(QString("/tmp/.X%1-lock").arg(n))) {
                m_display = QString(":%1").arg(n);
                break;
            }
        m_xvfb.process.start(xvfb, {m_display, "-screen", "0", "1280x800x24", "-nolisten", "tcp"});
        QVERIFY(m_xvfb.process.waitForStarted());
        QVERIFY(QTest::qWaitFor(
            [&] { return QFileInfo::exists("/tmp/.X11-unix/X" + m_display.mid(1)); }, 10000));

        const QString busPath = m_dir.filePath("bus");
        m_busAddress = "unix:path=" + busPath;
        m_bus.process.start(dbus, {"--session", "--nofork", "--address=" + m_busAddress});
        QVERIFY(m_bus.process.waitForStarted());
        QVERIFY(QTest::qWaitFor([&] { return QFileInfo::exists(busPath); }, 10000));
    }

    void registersWithHostsEarlyAndLate()
    {
        TestHome home;
        ScriptedDaemon daemon;

        // A host that is there before the companion.
        {
            QDBusConnection bus = QDBusConnection::connectToBus(m_busAddress, "early");
            SniWatcher watcher;
            QVERIFY(watcher.publish(bus));
            Child companion;
            startCompanion(companion);
            QVERIFY(QTest::qWaitFor([&] { return !watcher.registered().isEmpty(); }, 10000));
            companion.stop();
            bus.unregisterService("org.kde.StatusNotifierWatcher");
            bus.unregisterObject("/StatusNotifierWatcher");
        }
        QDBusConnection::disconnectFromBus("early");

        // A host that comes up after the companion: the icon appears without a restart.
        Child companion;
        startCompanion(companion);
        QTest::qWait(1500);
        QDBusConnection bus = QDBusConnection::connectToBus(m_busAddress, "late");
        SniWatcher watcher;
        QVERIFY(watcher.publish(bus));
        QVERIFY(QTest::qWaitFor([&] { return !watcher.registered().isEmpty(); }, 10000));
        const SniWatcher::Item item = watcher.registered().first();

        // Quiet daemon, panel closed: "bell", from summary refreshes only.
        QVERIFY(QTest::qWaitFor([&] { return shownBell(item) == "bell"; }, 10000));
        for (const char* name : {"Title", "IconAccessibleDesc"})
            QCOMPARE(property(item, name).toString(), QString("harkline"));
        QCOMPARE(property(item, "Status").toString(), QString("Active"));
        QCOMPARE(daemon.count("sessions"), 0);

        // The host draws our menu; opening the panel comes first.
        const QJsonValue layout =
            busctl({"call", item.service, "/MenuBar", "com.canonical.dbusmenu", "GetLayout", "iias",
                    "0", "-1", "0"});
        QCOMPARE(layout[1][2][0]["data"][1]["label"]["data"].toString(), QString("Open harkline"));

        // Activating the item opens the panel, and the panel asks for the whole picture; a
        // second start of the program opens it too, and leaves.
        const QStringList activate{
            "call",     item.service, item.path, "org.kde.StatusNotifierItem",
            "Activate", "ii",         "640",     "10"};
        busctl(activate);
        QVERIFY(QTest::qWaitFor([&] { return daemon.count("sessions") >= 1; }, 5000));
        QVERIFY(daemon.count("devices") >= 1);
        busctl(activate); // closed: the program stays, though its last window closed
        Child second;
        startCompanion(second);
        QVERIFY(second.process.waitForFinished(5000) && second.process.exitCode() == 0);
        const int opened = daemon.count("sessions");
        QVERIFY(QTest::qWaitFor([&] { return daemon.count("sessions") > opened; }, 5000));
        QCOMPARE(companion.process.state(), QProcess::Running);

        // While the panel is open the icon follows the daemon within a refresh or two; waiting
        // sessions and prompts ask for attention, and the tooltip says so in text that cannot
        // be markup.
        daemon.set([](ScriptedDaemon& d) {
            d.status["pending"] = 2;
            d.status["name"] = "<b>lab</b>";
        });
        QVERIFY(QTest::qWaitFor([&] { return shownBell(item) == "bell.badge"; }, 10000));
        QCOMPARE(property(item, "Status").toString(), QString("NeedsAttention"));
        const QString tip = property(item, "ToolTip")[3].toString();
        QVERIFY2(tip.contains("&lt;b&gt;lab&lt;/b&gt;") && tip.contains("2 prompts"),
                 qPrintable(tip));
        daemon.set([](ScriptedDaemon& d) {
            d.status["pending"] = 0;
            d.sessions = Json::array({session("s", "waiting")});
        });
        QVERIFY(QTest::qWaitFor(
            [&] { return property(item, "ToolTip")[3].toString().contains("A session needs you"); },
            10000));
        daemon.set([](ScriptedDaemon& d) { d.running = false; });
        QVERIFY(QTest::qWaitFor([&] { return shownBell(item) == "bell.slash"; }, 10000));

        companion.stop();
        QCOMPARE(companion.process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(companion.process.exitCode(), 0);
    }

    void cleanupTestCase()
    {
        m_bus.stop();
        m_xvfb.stop();
    }
};

QTEST_MAIN(TrayTest)
#include "tst_ui_tray.moc"
