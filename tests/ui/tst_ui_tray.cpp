// The program with our own tray host: its item registers also with a host that comes late, its
// icon follows the daemon, Activate or a second start opens the panel.

#include "Looks.h"
#include "ModelKit.h"
#include "SniWatcher.h"

#include <QDBusConnection>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>

#include <map>

using namespace harkline;
using namespace harkline::test;

namespace {

// The first image of IconPixmap as busctl prints it: [[width, height, [ARGB, network order]]].
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

// The bell whose own drawing the image is closest to.
QString bellIn(const QImage& image)
{
    std::map<qint64, QString> byDistance;
    for (const char* name : {"bell", "bell.badge", "bell.slash"}) {
        const QImage want = ui::looks::traySymbol(name)
                                .pixmap(image.size())
                                .toImage()
                                .convertToFormat(QImage::Format_ARGB32);
        qint64 distance = 0;
        for (int i = 0; i < image.width() * image.height(); ++i) {
            const QRgb a = image.pixel(i % image.width(), i / image.width());
            const QRgb b = want.pixel(i % image.width(), i / image.width());
            distance += std::abs(qAlpha(a) - qAlpha(b)) + std::abs(qGray(a) - qGray(b));
        }
        byDistance.emplace(distance, name);
    }
    return byDistance.begin()->second;
}

} // namespace

class TrayTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QProcessEnvironment m_env; // over the test's own, whose HOME each test sets

    void startCompanion(QProcess& companion)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(m_env);
        companion.setProcessEnvironment(env);
        companion.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        companion.start(HARKLINE_MENUBAR);
        QVERIFY(companion.waitForStarted());
    }

    // What busctl says to `args` on the private bus: the data of its JSON answer.
    QJsonValue busctl(const QStringList& args) const
    {
        QProcess busctl;
        busctl.start("busctl", QStringList{"--user", "--json=short", "--"} + args);
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
        // ctest runs this under xvfb-run and dbus-run-session: a display and a bus of its own.
        QVERIFY(qEnvironmentVariableIsSet("DISPLAY") && QFileInfo::exists(HARKLINE_MENUBAR));
        m_env.insert("QT_QPA_PLATFORM", "xcb");
        // A runtime folder of its own: a companion the user runs must not answer for this one.
        QVERIFY(QDir().mkpath(m_dir.filePath("runtime")));
        QFile::setPermissions(m_dir.filePath("runtime"), QFileDevice::ReadOwner |
                                                             QFileDevice::WriteOwner |
                                                             QFileDevice::ExeOwner);
        m_env.insert("XDG_RUNTIME_DIR", m_dir.filePath("runtime"));
    }

    void registersWithHostsEarlyAndLate()
    {
        TestHome home;
        ScriptedDaemon daemon;

        { // a host there before the companion; the first launch opens at login from then on
            SniWatcher early;
            QVERIFY(early.publish());
            QProcess first;
            startCompanion(first);
            QVERIFY(QTest::qWaitFor([&] { return !early.registered().isEmpty(); }, 10000));
            QVERIFY(QFile::exists(home.path() + "/.config/autostart/harkline-menubar.desktop"));
            first.terminate();
            QVERIFY(first.waitForFinished(5000));
        }
        QDBusConnection::sessionBus().unregisterService("org.kde.StatusNotifierWatcher");

        // A host that comes after: the icon appears without a restart.
        QProcess companion; // killed when it goes out of scope
        startCompanion(companion);
        QTest::qWait(1500);
        SniWatcher watcher;
        QVERIFY(watcher.publish());
        QVERIFY(QTest::qWaitFor([&] { return !watcher.registered().isEmpty(); }, 10000));
        const SniWatcher::Item item = watcher.registered().first();

        // Quiet daemon, panel closed: "bell", from summary refreshes only.
        QVERIFY(QTest::qWaitFor([&] { return shownBell(item) == "bell"; }, 10000));
        for (const char* name : {"Title", "IconAccessibleDesc"})
            QCOMPARE(property(item, name).toString(), QString("harkline"));
        QCOMPARE(property(item, "Status").toString(), QString("Active"));
        QCOMPARE(daemon.count("sessions"), 0);

        // The host draws our menu, opening the panel first.
        const QJsonValue layout =
            busctl({"call", item.service, "/MenuBar", "com.canonical.dbusmenu", "GetLayout", "iias",
                    "0", "-1", "0"});
        QCOMPARE(layout[1][2][0]["data"][1]["label"]["data"].toString(), QString("Open harkline"));

        // Activate opens the panel, which asks for everything; a second start opens it and leaves.
        const QStringList activate{
            "call",     item.service, item.path, "org.kde.StatusNotifierItem",
            "Activate", "ii",         "640",     "10"};
        busctl(activate);
        QVERIFY(QTest::qWaitFor([&] { return daemon.count("sessions") >= 1; }, 5000));
        QVERIFY(daemon.count("devices") >= 1);
        busctl(activate); // closed: the program stays, though its last window closed
        QProcess second;
        startCompanion(second);
        QVERIFY(second.waitForFinished(5000) && second.exitCode() == 0);
        const int opened = daemon.count("sessions");
        QVERIFY(QTest::qWaitFor([&] { return daemon.count("sessions") > opened; }, 5000));
        QCOMPARE(companion.state(), QProcess::Running);

        // The open panel's icon follows the daemon; waiting asks for attention (tooltip no markup).
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

        companion.terminate();
        QVERIFY(companion.waitForFinished(5000));
        QCOMPARE(companion.exitStatus(), QProcess::NormalExit);
        QCOMPARE(companion.exitCode(), 0);
    }
};

QTEST_MAIN(TrayTest)
#include "tst_ui_tray.moc"
