#include "DaemonClient.h"
#include "TestHome.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <algorithm>
#include <thread>

using harkline::DaemonClient;
using harkline::Json;

namespace {
bool answers()
{
    return DaemonClient::ok(DaemonClient::status()).has_value();
}

// Polls `condition` for up to `ms`; the simulated daemon works in real time.
template <typename F> bool eventually(F condition, int ms = 5000)
{
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > ms)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}
} // namespace

// The simulated daemon is a program people use to try the companion: run it for real.
class DemoDaemonTest : public QObject
{
    Q_OBJECT
    harkline::test::TestHome home_;

    std::unique_ptr<QProcess> start(QStringList arguments)
    {
        auto process = std::make_unique<QProcess>();
        process->setProgram(DEMO_DAEMON);
        process->setArguments(arguments);
        process->start();
        return process;
    }
    void stop(QProcess& process)
    {
        process.terminate();
        QVERIFY(process.waitForFinished(5000));
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 0);
    }

private slots:
    void servesEveryCommandTheCompanionReads()
    {
        auto daemon = start({});
        QVERIFY(eventually(answers));

        const auto status = DaemonClient::ok(DaemonClient::status());
        QVERIFY(status);
        const harkline::DaemonStatus record(*status);
        QVERIFY(!record.name.empty() && record.port > 0 && !record.hosts.empty());
        QVERIFY(record.connected <= record.devices);

        const auto devices = DaemonClient::devicesFrom(DaemonClient::ok(DaemonClient::devices()));
        QVERIFY(devices.size() >= 1 && devices.size() <= 2);
        QCOMPARE(std::int64_t(devices.size()), record.devices);

        // "pending" follows the waiting sessions; a state may change between two requests.
        QVERIFY(eventually([] {
            const auto pending =
                harkline::DaemonStatus(DaemonClient::ok(DaemonClient::status()).value_or(Json()))
                    .pending;
            const auto sessions =
                DaemonClient::sessionsFrom(DaemonClient::ok(DaemonClient::sessions()));
            const auto waiting = std::count_if(sessions.begin(), sessions.end(),
                                               [](const auto& s) { return s.state == "waiting"; });
            return sessions.size() >= 3 && sessions.size() <= 6 && pending == waiting;
        }));
        QVERIFY(DaemonClient::ok(DaemonClient::emitTest()));
        QVERIFY(!DaemonClient::ok({{"cmd", "no-such-command"}}, 3));
        stop(*daemon);
    }

    void pairedPhoneAppearsAndCanBeRevoked()
    {
        auto daemon = start({"--pair-delay", "1"});
        QVERIFY(eventually(answers));
        const auto before = DaemonClient::devicesFrom(DaemonClient::ok(DaemonClient::devices()));
        const auto offer = DaemonClient::offerFrom(DaemonClient::ok(DaemonClient::pair()));
        QVERIFY(offer);
        QVERIFY(!offer->payload.empty());
        QCOMPARE(offer->expiresIn, std::int64_t(120));

        std::vector<harkline::PairedDevice> after;
        QVERIFY(eventually([&] {
            after = DaemonClient::devicesFrom(DaemonClient::ok(DaemonClient::devices()));
            return after.size() == before.size() + 1;
        }));
        const auto fresh = std::find_if(after.begin(), after.end(), [&](const auto& d) {
            return std::none_of(before.begin(), before.end(),
                                [&](const auto& b) { return b.id == d.id; });
        });
        QVERIFY(fresh != after.end());
        QVERIFY(DaemonClient::ok(DaemonClient::revoke(fresh->id)));
        QCOMPARE(DaemonClient::devicesFrom(DaemonClient::ok(DaemonClient::devices())), before);
        QVERIFY(!DaemonClient::ok(DaemonClient::revoke(fresh->id))); // already gone
        stop(*daemon);
    }

    void oneDaemonPerSocketAndNothingLeftBehind()
    {
        const QString socket = QString::fromStdString(DaemonClient::socketPath());
        auto first = start({});
        QVERIFY(eventually(answers));
        auto second = start({});
        QVERIFY(second->waitForFinished(5000));
        QVERIFY(second->exitCode() != 0);
        QVERIFY(answers()); // the first one is untouched
        stop(*first);
        QVERIFY(!QFileInfo::exists(socket));

        // A socket file left by a daemon that died is replaced.
        auto killed = start({});
        QVERIFY(eventually(answers));
        killed->kill();
        QVERIFY(killed->waitForFinished(5000));
        QVERIFY(QFileInfo::exists(socket));
        auto replacement = start({});
        QVERIFY(eventually(answers));
        stop(*replacement);
    }

    void faultModesLookLikeTheirNames()
    {
        auto garbage = start({"--garbage"});
        QVERIFY(eventually([] { return QFileInfo::exists(DaemonClient::socketPath().c_str()); }));
        QVERIFY(eventually([] {
            try {
                DaemonClient::request({{"cmd", "status"}}, 1);
            } catch (const DaemonClient::BadReply&) {
                return true;
            } catch (...) {
            }
            return false;
        }));
        stop(*garbage);

        auto hang = start({"--hang"});
        QVERIFY(eventually([] { return QFileInfo::exists(DaemonClient::socketPath().c_str()); }));
        QElapsedTimer clock;
        clock.start();
        QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply,
                                 DaemonClient::request({{"cmd", "status"}}, 1));
        QVERIFY(clock.elapsed() >= 900);
        stop(*hang);
    }
};

QTEST_GUILESS_MAIN(DemoDaemonTest)
#include "tst_demo_daemon.moc"
