#include "DaemonClient.h"
#include "FakeDaemon.h"
#include "TestHome.h"

#include <QTest>

using harkline::DaemonClient;

namespace {
const std::string kSuffix = "/.local/state/harkline/harkline.sock";

// Points HOME at a folder name padded so that home + suffix is exactly `bytes` long.
void setHomeForPathOf(std::size_t bytes, const QString& base, const std::string& tail = "")
{
    const std::size_t pad = bytes - kSuffix.size() - base.toUtf8().size() - 1 - tail.size();
    qputenv("HOME", (base.toStdString() + "/" + std::string(pad, 'h') + tail).c_str());
}

void setOrUnset(const char* name, const char* value)
{
    if (value)
        qputenv(name, value);
    else
        qunsetenv(name);
}
} // namespace

class SocketPathTest : public QObject
{
    Q_OBJECT
    harkline::test::TestHome home_;

private slots:
    void homeBelow104BytesElseTmp()
    {
        setHomeForPathOf(103, home_.path());
        QCOMPARE(DaemonClient::socketPath().size(), std::size_t(103));
        QVERIFY(DaemonClient::socketPath().ends_with(kSuffix));

        struct Row
        {
            std::size_t bytes;
            const char* user; // null: unset
            const char* logname;
            const char* expected;
        };
        for (const Row& row : {Row{104, "ada", "bob", "/tmp/harkline-ada.sock"},
                               Row{200, nullptr, "bob", "/tmp/harkline-bob.sock"},
                               Row{104, nullptr, nullptr, "/tmp/harkline-user.sock"},
                               Row{104, "", "bob", "/tmp/harkline-.sock"},
                               Row{104, "zoë", nullptr, "/tmp/harkline-zoë.sock"}}) {
            setHomeForPathOf(row.bytes, home_.path());
            setOrUnset("USER", row.user);
            setOrUnset("LOGNAME", row.logname);
            QCOMPARE(QString::fromStdString(DaemonClient::socketPath()), row.expected);
        }

        // Counted in UTF-8 bytes, not characters.
        setHomeForPathOf(104, home_.path(), "é");
        QVERIFY(DaemonClient::socketPath().starts_with("/tmp/"));
        setHomeForPathOf(103, home_.path(), "é");
        QVERIFY(DaemonClient::socketPath().ends_with(kSuffix));
    }

    // A fallback that is itself too long is refused before any connect is tried, even when a
    // socket at its truncated prefix would exist.
    void overlongFallbackIsNotRunning()
    {
        setHomeForPathOf(150, home_.path());
        qputenv("USER", std::string(100, 'u').c_str());
        const std::string path = DaemonClient::socketPath();
        QVERIFY(path.size() > 103);
        harkline::test::FakeDaemon truncated(path.substr(0, 107));
        QVERIFY_THROWS_EXCEPTION(DaemonClient::NotRunning,
                                 DaemonClient::request({{"cmd", "status"}}, 1));
        QVERIFY(!DaemonClient::ok(DaemonClient::status()));
        QCOMPARE(truncated.connections(), 0);
    }
};

QTEST_GUILESS_MAIN(SocketPathTest)
#include "tst_socket_path.moc"
