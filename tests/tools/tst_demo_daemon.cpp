#include "DaemonClient.h"
#include "TestHome.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <algorithm>

using namespace harkline;

namespace {
bool answers()
{
    return DaemonClient::ok(DaemonClient::status()).has_value();
}
bool listening()
{
    return QFileInfo::exists(QString::fromStdString(DaemonClient::socketPath()));
}
std::vector<PairedDevice> devices()
{
    return DaemonClient::devicesFrom(DaemonClient::ok(DaemonClient::devices()));
}
} // namespace

// The simulated daemon is a program people use to try the companion: run it for real.
class DemoDaemonTest : public QObject
{
    Q_OBJECT
    harkline::test::TestHome home_;

    static std::unique_ptr<QProcess> start(QStringList arguments = {})
    {
        auto process = std::make_unique<QProcess>();
        process->start(DEMO_DAEMON, arguments);
        return process;
    }
    static void stop(QProcess& process)
    {
        process.terminate();
        QVERIFY(process.waitForFinished(5000));
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 0);
    }

private slots:
    void servesEveryCommandTheCompanionReads()
    {
        auto daemon = start();
        QVERIFY(QTest::qWaitFor(answers, 5000));
        const DaemonStatus status(*DaemonClient::ok(DaemonClient::status()));
        QVERIFY(!status.name.empty() && status.port > 0 && !status.hosts.empty());
        QVERIFY(status.connected <= status.devices);
        QCOMPARE(std::int64_t(devices().size()), status.devices);

        // "pending" follows the waiting sessions; a state may change between two requests.
        QVERIFY(QTest::qWaitFor(
            [] {
                const auto pending =
                    DaemonStatus(DaemonClient::ok(DaemonClient::status()).value_or(Json())).pending;
                const auto sessions =
                    DaemonClient::sessionsFrom(DaemonClient::ok(DaemonClient::sessions()));
                return sessions.size() >= 3 &&
                       pending == std::count_if(sessions.begin(), sessions.end(),
                                                [](const auto& s) { return s.state == "waiting"; });
            },
            5000));
        QVERIFY(DaemonClient::ok(DaemonClient::emitTest()));
        QVERIFY(!DaemonClient::ok({{"cmd", "no-such-command"}}, 3));
        stop(*daemon);
    }

    void pairedPhoneAppearsAndCanBeRevoked()
    {
        auto daemon = start({"--pair-delay", "1"});
        QVERIFY(QTest::qWaitFor(answers, 5000));
        const auto before = devices();
        const auto offer = DaemonClient::offerFrom(DaemonClient::ok(DaemonClient::pair()));
        QVERIFY(offer && !offer->payload.empty());
        std::vector<PairedDevice> after;
        QVERIFY(
            QTest::qWaitFor([&] { return (after = devices()).size() == before.size() + 1; }, 5000));
        const auto fresh = std::find_if(after.begin(), after.end(), [&](const auto& d) {
            return std::none_of(before.begin(), before.end(),
                                [&](const auto& b) { return b.id == d.id; });
        });
        QVERIFY(fresh != after.end());
        QVERIFY(DaemonClient::ok(DaemonClient::revoke(fresh->id)));
        QCOMPARE(devices(), before);
        QVERIFY(!DaemonClient::ok(DaemonClient::revoke(fresh->id))); // already gone
        stop(*daemon);
    }

    void oneDaemonPerSocketAndNothingLeftBehind()
    {
        auto first = start();
        QVERIFY(QTest::qWaitFor(answers, 5000));
        auto second = start();
        QVERIFY(second->waitForFinished(5000));
        QVERIFY(second->exitCode() != 0);
        QVERIFY(answers()); // the first one is untouched
        stop(*first);
        QVERIFY(!listening());

        // A socket file left by a daemon that died is replaced.
        auto killed = start();
        QVERIFY(QTest::qWaitFor(answers, 5000));
        killed->kill();
        QVERIFY(killed->waitForFinished(5000) && listening());
        auto replacement = start();
        QVERIFY(QTest::qWaitFor(answers, 5000));
        stop(*replacement);
    }

    void faultModesLookLikeTheirNames()
    {
        for (const char* mode : {"--garbage", "--hang"}) {
            auto daemon = start({mode});
            QVERIFY(QTest::qWaitFor(listening, 5000));
            QTest::qWait(200); // listening follows binding
            QElapsedTimer clock;
            clock.start();
            QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply,
                                     DaemonClient::request({{"cmd", "status"}}, 1));
            QVERIFY(mode[2] == 'g' || clock.elapsed() >= 900); // a hang costs the time-out
            stop(*daemon);
        }
    }
};

QTEST_GUILESS_MAIN(DemoDaemonTest)
#include "tst_demo_daemon.moc"
