// The simulated daemon is a program people use to try the companion: run it for real.

#include "DaemonClient.h"
#include "FakeDaemon.h"
#include "TestHome.h"

#include <QProcess>
#include <QTest>

using namespace harkline;

namespace {
bool answers()
{
    return DaemonClient::ok(DaemonClient::status()).has_value();
}
std::vector<PairedDevice> devices()
{
    return DaemonClient::devicesFrom(DaemonClient::ok(DaemonClient::devices()));
}
} // namespace

class DemoDaemonTest : public QObject
{
    Q_OBJECT
    harkline::test::TestHome home_;

private slots:
    void servesWhatTheCompanionReadsAndPairs()
    {
        // A socket left by a daemon that died is taken over; a live daemon's is not.
        QVERIFY(test::FakeDaemon::leaveStaleSocket(DaemonClient::socketPath()));
        QProcess daemon;
        daemon.start(DEMO_DAEMON, {"--pair-delay", "1"});
        QVERIFY(QTest::qWaitFor(answers, 5000));
        QProcess second;
        second.start(DEMO_DAEMON);
        QVERIFY(second.waitForFinished(5000) && second.exitCode() == 1);
        QVERIFY(second.readAllStandardError().contains("a daemon already answers on"));
        second.start(DEMO_DAEMON, {"--phones", "2x"});
        QVERIFY(second.waitForFinished(5000) && second.exitCode() == 2);
        QCOMPARE(second.readAllStandardError(),
                 "harkline-demo-daemon: --phones needs a whole "
                 "number from 0 to 10000, not \"2x\" (try --help)\n");

        const DaemonStatus status(*DaemonClient::ok(DaemonClient::status()));
        QVERIFY(!status.name.empty() && status.port > 0 && !status.hosts.empty());
        const auto before = devices();
        QCOMPARE(std::int64_t(before.size()), status.devices);
        QVERIFY(DaemonClient::sessionsFrom(DaemonClient::ok(DaemonClient::sessions())).size() >= 3);
        QVERIFY(DaemonClient::ok(DaemonClient::emitTest()));
        QVERIFY(!DaemonClient::ok({{"cmd", "no-such-command"}}, 3));

        // A pairing code brings a new phone a second later; it can be removed once.
        QVERIFY(DaemonClient::offerFrom(DaemonClient::ok(DaemonClient::pair())));
        QVERIFY(QTest::qWaitFor([&] { return devices().size() == before.size() + 1; }, 5000));
        const std::string fresh = devices().back().id; // the daemon adds it at the end
        QVERIFY(fresh != before.back().id);
        QVERIFY(DaemonClient::ok(DaemonClient::revoke(fresh)));
        QCOMPARE(devices(), before);
        QVERIFY(!DaemonClient::ok(DaemonClient::revoke(fresh)));

        daemon.terminate();
        QVERIFY(daemon.waitForFinished(5000));
        QCOMPARE(daemon.exitCode(), 0);
        QVERIFY(!QFile::exists(QString::fromStdString(DaemonClient::socketPath())));
    }

    void faultModesLookLikeTheirNames()
    {
        for (const char* mode : {"--garbage", "--hang"}) {
            QProcess daemon;
            daemon.start(DEMO_DAEMON, {mode});
            QVERIFY(QTest::qWaitFor(
                [] { return QFile::exists(QString::fromStdString(DaemonClient::socketPath())); },
                5000));
            QTest::qWait(200);
            QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply,
                                     DaemonClient::request({{"cmd", "status"}}, 1));
            daemon.terminate();
            QVERIFY(daemon.waitForFinished(5000));
        }
    }
};

QTEST_GUILESS_MAIN(DemoDaemonTest)
#include "tst_demo_daemon.moc"
