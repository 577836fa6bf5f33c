// The companion as a program on a real X server (Xvfb) with a private session bus and a tray
// host of our own: it registers its item also when the host comes late, its icon follows the
// daemon, and activating the item opens the panel, which asks for a detailed refresh.

#include "Looks.h"
#include "ModelKit.h"
#include "SniWatcher.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

using namespace harkline;
using namespace harkline::test;

namespace {

// The first image of an IconPixmap property: (width, height, ARGB bytes in network order).
QImage firstPixmap(const QDBusArgument& arg)
{
    QImage image;
    arg.beginArray();
    while (!arg.atEnd()) {
        int width = 0, height = 0;
        QByteArray argb;
        arg.beginStructure();
        arg >> width >> height >> argb;
        arg.endStructure();
        if (!image.isNull() || argb.size() < 4 * width * height)
            continue;
        image = QImage(width, height, QImage::Format_ARGB32);
        const auto* p = reinterpret_cast<const uchar*>(argb.constData());
        for (int i = 0; i < width * height; ++i, p += 4)
            image.setPixel(i % width, i / width, qRgba(p[1], p[2], p[3], p[0]));
    }
    arg.endArray();
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

// The label of the first entry of a dbusmenu layout (ia{sv}av). Every structure and array
// opened is closed again: an unclosed one leaks its reader.
QString firstMenuLabel(const QDBusArgument& arg)
{
    int id = 0;
    QVariantMap props;
    QList<QDBusVariant> children;
    arg.beginStructure();
    arg >> id >> props;
    arg.beginArray();
    while (!arg.atEnd()) {
        QDBusVariant child;
        arg >> child;
        children << child;
    }
    arg.endArray();
    arg.endStructure();
    if (children.isEmpty())
        return {};
    const QDBusArgument first = children.first().variant().value<QDBusArgument>();
    first.beginStructure();
    first >> id >> props;
    first.endStructure();
    return props.value("label").toString();
}

// The body of a ToolTip property (sa(iiay)ss).
QString toolTipBody(const QDBusArgument& arg)
{
    QString icon, title, body;
    arg.beginStructure();
    arg >> icon;
    arg.beginArray();
    while (!arg.atEnd()) {
        arg.beginStructure();
        int w, h;
        QByteArray bytes;
        arg >> w >> h >> bytes;
        arg.endStructure();
    }
    arg.endArray();
    arg >> title >> body;
    arg.endStructure();
    return body;
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

    // The item's property, read over the bus.
    static QVariant property(QDBusConnection& bus, const SniWatcher::Item& item, const char* name)
    {
        QDBusMessage get = QDBusMessage::createMethodCall(item.service, item.path,
                                                          "org.freedesktop.DBus.Properties", "Get");
        get << QStringLiteral("org.kde.StatusNotifierItem") << QString(name);
        const QDBusMessage reply = bus.call(get, QDBus::Block, 2000);
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
            return {};
        return reply.arguments().at(0).value<QDBusVariant>().variant();
    }

    static QString shownBell(QDBusConnection& bus, const SniWatcher::Item& item)
    {
        const QVariant value = property(bus, item, "IconPixmap");
        if (!value.canConvert<QDBusArgument>())
            return {};
        const QImage image = firstPixmap(value.value<QDBusArgument>());
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
        QVERIFY(QTest::qWaitFor([&] { return shownBell(bus, item) == "bell"; }, 10000));
        QCOMPARE(property(bus, item, "Title").toString(), QString("harkline"));
        QCOMPARE(property(bus, item, "Status").toString(), QString("Active"));
        QCOMPARE(property(bus, item, "IconAccessibleDesc").toString(), QString("harkline"));
        QCOMPARE(daemon.count("sessions"), 0);

        // The host draws our menu; opening the panel comes first.
        QDBusMessage layout = QDBusMessage::createMethodCall(item.service, "/MenuBar",
                                                             "com.canonical.dbusmenu", "GetLayout");
        layout << 0 << -1 << QStringList();
        const QDBusMessage menu = bus.call(layout, QDBus::Block, 2000);
        QCOMPARE(menu.type(), QDBusMessage::ReplyMessage);
        QVERIFY(firstMenuLabel(menu.arguments().value(1).value<QDBusArgument>()) ==
                "Open harkline");

        // Activating the item opens the panel, and the panel asks for the whole picture.
        QDBusMessage activate = QDBusMessage::createMethodCall(
            item.service, item.path, "org.kde.StatusNotifierItem", "Activate");
        activate << 640 << 10;
        QCOMPARE(bus.call(activate, QDBus::Block, 2000).type(), QDBusMessage::ReplyMessage);
        QVERIFY(QTest::qWaitFor([&] { return daemon.count("sessions") >= 1; }, 5000));
        QVERIFY(daemon.count("devices") >= 1);

        // While the panel is open the icon follows the daemon within a refresh or two; waiting
        // prompts ask for attention, and the tooltip says so in text that cannot be markup.
        daemon.set([](ScriptedDaemon& d) {
            d.status["pending"] = 2;
            d.status["name"] = "<b>lab</b>";
        });
        QVERIFY(QTest::qWaitFor([&] { return shownBell(bus, item) == "bell.badge"; }, 10000));
        QCOMPARE(property(bus, item, "Status").toString(), QString("NeedsAttention"));
        const QString tip = toolTipBody(property(bus, item, "ToolTip").value<QDBusArgument>());
        QVERIFY2(tip.contains("&lt;b&gt;lab&lt;/b&gt;") && tip.contains("2 prompts"),
                 qPrintable(tip));
        daemon.set([](ScriptedDaemon& d) { d.running = false; });
        QVERIFY(QTest::qWaitFor([&] { return shownBell(bus, item) == "bell.slash"; }, 10000));

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
