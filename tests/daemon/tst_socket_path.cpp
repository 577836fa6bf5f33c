#include "DaemonClient.h"
#include "FakeDaemon.h"
#include "TestHome.h"

#include <QDir>
#include <QTest>

using harkline::DaemonClient;

namespace {
const std::string kSuffix = "/.local/state/harkline/harkline.sock";

// A home folder name padded so that home + suffix is exactly `bytes` long.
std::string homeForPathOf(std::size_t bytes, const std::string& base)
{
    const std::size_t pad = bytes - kSuffix.size() - base.size() - 1;
    return base + "/" + std::string(pad, 'h');
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
    void homePathIsUsedBelow104Bytes()
    {
        qputenv("HOME", homeForPathOf(103, home_.path().toStdString()).c_str());
        const std::string path = DaemonClient::socketPath();
        QCOMPARE(path.size(), std::size_t(103));
        QVERIFY(path.ends_with(kSuffix));
    }

    void fallbackFrom104BytesOn_data()
    {
        QTest::addColumn<int>("bytes");
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("logname");
        QTest::addColumn<QString>("expected");
        const QString unset; // a null QString stands for an unset variable
        QTest::newRow("104, USER") << 104 << "ada"
                                   << "bob"
                                   << "/tmp/harkline-ada.sock";
        QTest::newRow("200, LOGNAME") << 200 << unset << "bob"
                                      << "/tmp/harkline-bob.sock";
        QTest::newRow("neither") << 104 << unset << unset << "/tmp/harkline-user.sock";
        QTest::newRow("USER empty") << 104 << ""
                                    << "bob"
                                    << "/tmp/harkline-.sock";
        QTest::newRow("non-ASCII bytes") << 104 << "zoë" << unset << "/tmp/harkline-zoë.sock";
    }
    void fallbackFrom104BytesOn()
    {
        QFETCH(int, bytes);
        QFETCH(QString, user);
        QFETCH(QString, logname);
        QFETCH(QString, expected);
        qputenv("HOME", homeForPathOf(std::size_t(bytes), home_.path().toStdString()).c_str());
        const QByteArray u = user.toUtf8(), l = logname.toUtf8();
        setOrUnset("USER", user.isNull() ? nullptr : u.constData());
        setOrUnset("LOGNAME", logname.isNull() ? nullptr : l.constData());
        QCOMPARE(QString::fromStdString(DaemonClient::socketPath()), expected);
    }

    // The length is counted in UTF-8 bytes, not characters: 2-byte characters in the home
    // push the same number of characters over the limit.
    void lengthIsCountedInBytes()
    {
        const std::string base = home_.path().toStdString();
        const std::size_t room = 103 - kSuffix.size() - base.size() - 1;
        qputenv("HOME", (base + "/" + std::string(room - 1, 'h') + "é").c_str());
        QVERIFY(DaemonClient::socketPath().starts_with("/tmp/"));
        qputenv("HOME", (base + "/" + std::string(room - 2, 'h') + "é").c_str());
        QVERIFY(DaemonClient::socketPath().ends_with(kSuffix));
    }

    // A fallback that is itself too long is refused before any connect is tried, even when a
    // socket at its truncated prefix would exist.
    void overlongFallbackIsNotRunning()
    {
        qputenv("HOME", homeForPathOf(150, home_.path().toStdString()).c_str());
        qputenv("USER", std::string(100, 'u').c_str());
        const std::string path = DaemonClient::socketPath();
        QVERIFY(path.size() > 103);
        // What a client that silently truncated the path to fit sockaddr_un would reach.
        harkline::test::FakeDaemon truncated(path.substr(0, 107));
        QVERIFY_THROWS_EXCEPTION(DaemonClient::NotRunning,
                                 DaemonClient::request({{"cmd", "status"}}, 1));
        QVERIFY(!DaemonClient::ok(DaemonClient::status()));
        QCOMPARE(truncated.connections(), 0);
    }
};

QTEST_GUILESS_MAIN(SocketPathTest)
#include "tst_socket_path.moc"
