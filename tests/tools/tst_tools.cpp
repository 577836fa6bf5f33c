// The command-line tools run as real processes: harklinectl against the fake daemon, what it
// prints and how it exits; the demo daemon, which people use to try the companion.

#include "DaemonClient.h"
#include "FakeDaemon.h"
#include "TestHome.h"
#include "ZbarRead.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <climits>
#include <csignal>
#include <map>
#include <optional>

using namespace harkline;
using namespace harkline::test;
using namespace std::chrono;

namespace {

std::vector<PairedDevice> devices()
{
    return DaemonClient::devicesFrom(DaemonClient::ok(DaemonClient::devices()));
}

struct Run
{
    int code = -1;
    QString out;
    QString err;
};

Run ctl(const QStringList& args)
{
    QProcess process;
    process.start(HARKLINECTL, args);
    if (!process.waitForFinished(20000))
        process.kill();
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

// JSON written with ' for " to stay readable: q("{'ok':true}").
QString q(const char* text)
{
    return QString::fromUtf8(text).replace('\'', '"');
}

// Daemon text as harklinectl prints it: between a first-strong isolate and its end.
QString iso(const QString& text)
{
    return QChar(0x2068) + text + QChar(0x2069);
}

qint64 msAgo(seconds ago)
{
    return duration_cast<milliseconds>((system_clock::now() - ago).time_since_epoch()).count();
}

// The half-block code in the output (a module per character across, two per line down), decoded.
QByteArray decodeTerminalQr(const QString& out)
{
    const QString colours = QStringLiteral("\x1b[38;5;16;48;5;231m");
    const QString reset = QStringLiteral("\x1b[0m");
    QStringList rows;
    for (const QString& line : out.split('\n'))
        if (line.startsWith(colours) && line.endsWith(reset))
            rows << line.mid(colours.size(), line.size() - colours.size() - reset.size());
    if (rows.isEmpty())
        return {};
    QImage image(int(rows.front().size()), int(rows.size()) * 2, QImage::Format_RGB32);
    image.fill(Qt::white);
    for (int row = 0; row < rows.size(); ++row)
        for (int column = 0; column < rows[row].size(); ++column) {
            const QChar c = rows[row][column];
            if (c == QChar(0x2588) || c == QChar(0x2580)) // full block or upper half
                image.setPixel(column, row * 2, qRgb(0, 0, 0));
            if (c == QChar(0x2588) || c == QChar(0x2584)) // full block or lower half
                image.setPixel(column, row * 2 + 1, qRgb(0, 0, 0));
        }
    return zbarRead(image.scaled(image.size() * 4), 16);
}

} // namespace

class ToolsTest : public QObject
{
    Q_OBJECT

    TestHome home_;
    [[maybe_unused]] const bool english_ = qputenv("LC_ALL", "en_US.UTF-8"); // relative times
    const QString socket = QString::fromStdString(DaemonClient::socketPath());
    const Json statusReply = Json::parse(q("{'ok':true,'name':'desk','hosts':['10.0.0.2',"
                                           "'desk.local'],'port':8443,'devices':3,'connected':1,"
                                           "'pending':0}")
                                             .toStdString());

    // Runs harklinectl against a kind of daemon; compares exit status, output and errors.
    void expect(const QString& daemon, const QStringList& args, int code, const QString& out,
                const QString& err = "")
    {
        // Raw replies, ' for ": the hostile ones hold markup, C1 and bidi controls, a cut emoji
        // and numbers beyond a double, which only the daemon's lenient reading takes.
        std::map<std::string, QString> raw;
        if (daemon == "answers" || daemon == "refusesActions") {
            raw = {{"status", QString::fromStdString(statusReply.dump())},
                   {"sessions", q("{'ok':true,'sessions':[{'id':'s1','project':'relay','title':"
                                  "'Fix backoff','state':'waiting','listening':true,'queued':2,"
                                  "'last_ts':%1},{'id':'s2','project':'notes','state':'working',"
                                  "'last_ts':%2}]}")
                                    .arg(msAgo(seconds(300)))
                                    .arg(msAgo(seconds(5400)))},
                   {"devices", q("{'ok':true,'devices':[{'id':'p1','name':'Pixel'},{'id':'p2',"
                                 "'name':'Work'},{'id':'p3','name':'Work'}]}")}};
            if (daemon == "answers")
                raw["emit"] = raw["revoke"] = q("{'ok':true}");
        } else if (daemon == "garbage") {
            raw = {{"status", "{]"}};
        } else if (daemon == "hostile") {
            raw = {{"status", q("{'ok':true,'name':'<b>x</b> & \\u202e\\ud83d','hosts':["
                                "'h\\u202e:1','a\\u009b2J\\nb'],'port':1e400,'devices':1,"
                                "'connected':1,'pending':0}")},
                   {"sessions", q("{'ok':true,'sessions':[{'id':'s1','title':'t\\u009c"
                                  "\\u001b[31m','project':'\\u202ep','state':'wait\\u202eing',"
                                  "'last_ts':-1e400}]}")}};
        }
        std::optional<FakeDaemon> fake;
        if (daemon != "absent")
            fake.emplace(socket.toStdString()).setHandler([raw](const std::string& line) {
                const auto found = raw.find(FakeDaemon::commandOf(line));
                return FakeDaemon::Script::bytes(
                    (found == raw.end() ? q("{'ok':false}") : found->second).toStdString() + "\n");
            });
        const Run run = ctl(args);
        const QString got = QString("%1\n%2\n%3").arg(run.code).arg(run.out, run.err);
        QVERIFY2(got == QString("%1\n%2\n%3").arg(code).arg(out, err),
                 qPrintable(daemon + ": " + args.join(' ') + "\n" + got));
        if (args.front() == "revoke" && code == 0) // the id sent, found from a name or an id
            QCOMPARE(Json::parse(fake->requests().back()).value("id", ""),
                     args[1] == "Pixel" ? "p1" : "p3");
    }

private slots:
    void commands()
    {
        const QString down = "harkline is not running: nothing answers at " + socket + ".\n";
        const QString downBar = "{\"alt\":\"bell.slash\",\"class\":\"down\",\"text\":\"off\","
                                "\"tooltip\":\"harkline is not running\"}\n";
        const QString statusJson = "{\"connected\":1,\"devices\":3,\"hosts\":[\"10.0.0.2\","
                                   "\"desk.local\"],\"name\":\"desk\",";
        expect("answers", {"status"}, 0,
               "harkline is running at " + socket + ".\nname:            " + iso("desk") +
                   "\naddress:         " + iso("10.0.0.2") + ", " + iso("desk.local") +
                   "\nport:            8443\n"
                   "phones:          1 connected of 3 paired\n"
                   "waiting prompts: 0\n");
        expect("answers", {"status", "--json"}, 0,
               statusJson + "\"pending\":0,\"port\":8443,\"running\":true}\n");
        // No prompt counted by the daemon, but a session waits: the companion's badge rule.
        expect("answers", {"status", "--waybar"}, 0,
               "{\"alt\":\"bell.badge\",\"class\":\"waiting\",\"text\":\"1\","
               "\"tooltip\":\"\\u2068desk\\u2069\\n1 waiting · 1 of 3 phones connected\"}\n");
        expect("answers", {"sessions"}, 0,
               iso("waiting") + "  " + iso("Fix backoff") + " · " + iso("relay") +
                   " · 5 min. ago · phone can reply · 2 queued\n" + iso("working") + "  " +
                   iso("notes") + " · 1 hr. ago\n");
        expect("answers", {"devices"}, 0,
               iso("Pixel") + " · paired at an unknown time · " + iso("p1") + "\n" + iso("Work") +
                   " · paired at an unknown time · " + iso("p2") + "\n" + iso("Work") +
                   " · paired at an unknown time · " + iso("p3") + "\n");
        expect("answers", {"devices", "--json"}, 0,
               "[{\"id\":\"p1\",\"name\":\"Pixel\",\"paired\":0.0},{\"id\":\"p2\",\"name\":"
               "\"Work\",\"paired\":0.0},{\"id\":\"p3\",\"name\":\"Work\",\"paired\":0.0}]\n");
        expect("answers", {"test"}, 0, "Test notification sent to 1 phone.\n");
        expect("answers", {"revoke", "Pixel"}, 0, "Removed " + iso("Pixel") + ".\n");
        expect("answers", {"revoke", "p3"}, 0, "Removed " + iso("Work") + ".\n");
        expect("answers", {"revoke", "Work"}, 1, "",
               "2 paired phones are named \"Work\"; give the id of the one to remove (see "
               "harklinectl devices).\n");
        expect("answers", {"revoke", "Tablet"}, 1, "",
               "No paired phone has the id or name \"Tablet\".\n");
        expect("answers", {"raw", "{\"cmd\": \"status\"}"}, 0,
               statusJson + "\"ok\":true,\"pending\":0,\"port\":8443}\n");
        expect("refusesActions", {"test"}, 3, "", "The service is not running.\n");
        expect("refusesActions", {"revoke", "Pixel"}, 1, "",
               "Could not remove " + iso("Pixel") + ".\n");
        expect("refusesActions", {"pair"}, 1, "",
               "Could not get a pairing code from the service.\n");
        expect("refusesActions", {"raw", "{\"cmd\":\"emit\"}"}, 1, "{\"ok\":false}\n");
        // Daemon text reaches neither the terminal nor waybar's markup as anything but text:
        // inert and isolated in lines, escaped in markup; one odd value voids nothing.
        const QString bad(QChar(0xFFFD));
        expect("hostile", {"status", "--waybar"}, 0,
               q("{'alt':'bell','class':'quiet','text':'0','tooltip':'\\u2068&lt;b&gt;x&lt;/b&gt; "
                 "&amp; �\\u2069\\n0 waiting · 1 of 1 phones connected'}\n"));
        expect("hostile", {"sessions"}, 0,
               iso("waiting") + "  " + iso("t" + bad + bad + "[31m") + " · " + iso("p") +
                   " · unknown\n");
        expect("absent", {"status"}, 3, "", down);
        expect("absent", {"status", "--json"}, 3, "{\"running\":false}\n");
        expect("absent", {"status", "--waybar"}, 0, downBar);
        expect("absent", {"sessions"}, 3, "", down);
        expect("absent", {"revoke", "p1"}, 3, "", down);
        expect("absent", {"raw", "{\"cmd\":\"status\"}"}, 3, "", down);
        expect("garbage", {"raw", "{\"cmd\":\"status\"}"}, 5, "",
               "harkline sent a bad reply: not one JSON object, or nothing in time.\n");
    }

    // A status-bar line is due within the status request's 3 s, however long the sessions hang:
    // here the status takes 2.5 s of them and the sessions never come.
    void aHangingDaemon()
    {
        FakeDaemon fake(socket.toStdString());
        QElapsedTimer clock;
        fake.setHandler([this](const std::string& line) {
            if (FakeDaemon::commandOf(line) != "status")
                return FakeDaemon::Script::never();
            FakeDaemon::Script slow = FakeDaemon::Script::answer(statusReply);
            slow.chunks.insert(slow.chunks.begin(), " ");
            slow.gap = milliseconds(2500);
            return slow;
        });
        clock.start();
        const Run run = ctl({"status", "--waybar"});
        QVERIFY2(clock.elapsed() < 4500, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(run.code, 0);
        QVERIFY(run.out.startsWith("{\"alt\":\"bell\",\"class\":\"quiet\",\"text\":\"0\""));
        QCOMPARE(fake.count("sessions"), 1);
    }

    void wrongUsageExits2WithOneSentence()
    {
        // One case per ";", its arguments separated by spaces; the first has none at all.
        const QString cases =
            ";bogus;--bogus;status extra;status --json --waybar;status --watch 1;"
            "status --waybar --watch 0;status --waybar --watch;sessions --waybar;"
            "revoke;revoke a b;revoke -x;raw {\"cmd\":;raw [\"status\"];raw --timeout 1e9 {};"
            "help bogus";
        for (const QString& label : cases.split(';')) {
            const Run run = ctl(label.split(' ', Qt::SkipEmptyParts));
            QVERIFY2(run.code == 2 && run.out.isEmpty() && run.err.startsWith("harklinectl: ") &&
                         run.err.count('\n') == 1 && run.err.endsWith(").\n"),
                     qPrintable(label + ": " + run.err));
        }
    }

    // A code that lapses at once is never polled; Ctrl-C ends the wait; a code that a phone
    // takes is readable by an independent decoder and names the first new phone.
    void pair()
    {
        QVERIFY2(!QStandardPaths::findExecutable("zbarimg").isEmpty(), "zbar-tools is missing");
        // The code is printed inert but not isolated: people copy it.
        const std::string payload =
            "hk1:pair?host=10.0.0.2&token=Grüße-€-\u202e" + std::string(80, 'z');
        FakeDaemon fake(socket.toStdString());
        std::atomic<int> expiresIn{0}, polls{0}, newFrom{INT_MAX};
        fake.setHandler([&](const std::string& line) {
            const std::string cmd = FakeDaemon::commandOf(line);
            if (cmd == "pair")
                return FakeDaemon::Script::answer(
                    {{"ok", true}, {"qr", payload}, {"expires_in", int(expiresIn)}});
            Json devices = {{{"id", "p1"}, {"name", "Pixel"}}};
            if (cmd == "devices" && polls++ >= newFrom) // two new phones around the known one
                devices = {{{"id", "n1"}, {"name", "Tablet"}},
                           {{"id", "p1"}, {"name", "Pixel"}},
                           {{"id", "n2"}, {"name", "Other"}}};
            return FakeDaemon::Script::answer({{"ok", true}, {"devices", devices}});
        });
        Run run = ctl({"pair"});
        QCOMPARE(run.err, "The pairing code expired before a phone used it.\n");
        QCOMPARE(run.code, 4);
        QCOMPARE(fake.count("devices"), 1);

        expiresIn = 30;
        QProcess process;
        process.start(HARKLINECTL, {"pair"});
        QVERIFY(process.waitForReadyRead(10000)); // the code is out: it waits for the phone
        ::kill(pid_t(process.processId()), SIGINT);
        QVERIFY(process.waitForFinished(5000));
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 128 + SIGINT);
        QCOMPARE(process.readAllStandardError(), "Pairing cancelled.\n");

        newFrom = polls + 2; // the phones known before, one poll, then the new ones
        run = ctl({"pair"});
        QCOMPARE(run.err, "");
        QCOMPARE(run.code, 0);
        QVERIFY(run.out.endsWith(
            "\nPairing code: " + QString::fromStdString(payload).remove(QChar(0x202E)) +
            "\nWaiting for the phone; the code expires in 0:30.\n"
            "Paired with " +
            iso("Tablet") + "\n"));
        QCOMPARE(decodeTerminalQr(run.out), QByteArray::fromStdString(payload));
    }

    void watchPrintsOnlyChanges()
    {
        FakeDaemon fake(socket.toStdString());
        std::atomic<int> asked{0};
        fake.setHandler([&](const std::string& line) {
            const std::string cmd = FakeDaemon::commandOf(line);
            if (cmd == "sessions")
                return FakeDaemon::Script::answer({{"ok", true}, {"sessions", Json::array()}});
            const int n = ++asked;
            Json reply = statusReply;
            if (n > 3)
                reply["pending"] = 2;
            if (n > 6)
                reply = {{"ok", false}};
            return FakeDaemon::Script::answer(reply);
        });
        QProcess process;
        process.start(HARKLINECTL, {"status", "--waybar", "--watch", "0.1"});
        // Nine asks cover three of each state; then a while longer in the last.
        QVERIFY(QTest::qWaitFor([&] { return asked >= 12; }, 10000));
        process.terminate();
        QVERIFY(process.waitForFinished(5000));
        const QStringList lines =
            QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 3);
        QVERIFY(lines[0].contains("\"class\":\"quiet\",\"text\":\"0\""));
        QVERIFY(lines[1].contains("\"class\":\"waiting\",\"text\":\"2\""));
        QVERIFY(lines[2].contains("\"class\":\"down\""));
    }

    void servesWhatTheCompanionReadsAndPairs()
    {
        // A socket left by a daemon that died is taken over; a live daemon's is not.
        QVERIFY(FakeDaemon::leaveStaleSocket(DaemonClient::socketPath()));
        QProcess daemon;
        daemon.start(DEMO_DAEMON, {"--pair-delay", "1"});
        QVERIFY(daemon.waitForReadyRead(5000)); // it says so once it listens
        QProcess second;
        second.start(DEMO_DAEMON);
        QVERIFY(second.waitForFinished(5000) && second.exitCode() == 1);
        QVERIFY(second.readAllStandardError().contains("a daemon already answers on"));
        second.start(DEMO_DAEMON, {"--phones", "2x"});
        QVERIFY(second.waitForFinished(5000) && second.exitCode() == 2);

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

        for (const char* mode : {"--garbage", "--hang"}) { // its fault modes look like their names
            QProcess faulty;
            faulty.start(DEMO_DAEMON, {mode});
            QVERIFY(faulty.waitForReadyRead(5000));
            QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply,
                                     DaemonClient::request({{"cmd", "status"}}, 1));
            faulty.terminate();
            QVERIFY(faulty.waitForFinished(5000));
        }
    }
};

QTEST_GUILESS_MAIN(ToolsTest)
#include "tst_tools.moc"
