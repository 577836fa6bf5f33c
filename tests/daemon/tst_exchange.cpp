#include "DaemonClient.h"
#include "FakeDaemon.h"
#include "TestHome.h"

#include <QDir>
#include <QElapsedTimer>
#include <QTest>

#include <csignal>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using harkline::DaemonClient;
using harkline::Json;
using harkline::test::FakeDaemon;
using Script = FakeDaemon::Script;

Q_DECLARE_METATYPE(Script)

namespace {
// Readable failures: nlohmann's values do not fit QCOMPARE's printers.
#define COMPARE_JSON(actual, expected)                                                             \
    QCOMPARE(QString::fromStdString(Json(actual).dump()),                                          \
             QString::fromStdString(Json(expected).dump()))

int openDescriptors()
{
    return int(QDir("/proc/self/fd").entryList(QDir::Files | QDir::System).size());
}

Script chunks(std::vector<std::string> parts, int gapMs = 20)
{
    Script script;
    script.chunks = std::move(parts);
    script.gap = std::chrono::milliseconds(gapMs);
    return script;
}

// A socket bound at `path` and not listening, as a daemon that died leaves it; -1 on failure.
int boundSocket(const std::string& path)
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    return ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 ? fd : -1;
}

Json exchange(const Script& script, int timeout = 2)
{
    FakeDaemon fake(DaemonClient::socketPath());
    fake.setHandler([script](const std::string&) { return script; });
    return DaemonClient::request({{"cmd", "status"}}, timeout);
}

void expectNotRunning()
{
    QVERIFY_THROWS_EXCEPTION(DaemonClient::NotRunning, DaemonClient::request({{"cmd", "x"}}, 1));
    QVERIFY(!DaemonClient::ok({{"cmd", "x"}}, 1));
}
} // namespace

class ExchangeTest : public QObject
{
    Q_OBJECT
    harkline::test::TestHome home_;

private slots:
    void everyCommandGoesOutAsOneCompactLine()
    {
        FakeDaemon fake(DaemonClient::socketPath());
        const std::vector<DaemonClient::Command> commands = {
            DaemonClient::status(), DaemonClient::devices(),          DaemonClient::sessions(),
            DaemonClient::pair(),   DaemonClient::revoke("ph one ü"), DaemonClient::emitTest()};
        for (const auto& command : commands)
            QVERIFY(DaemonClient::ok(command));
        const auto lines = fake.requests();
        QCOMPARE(fake.connections(), int(commands.size())); // one connection per request
        for (std::size_t i = 0; i < lines.size(); ++i)
            QCOMPARE(lines[i], commands[i].request.dump() + "\n"); // compact, one line
        COMPARE_JSON(Json::parse(lines[4]), Json({{"cmd", "revoke"}, {"id", "ph one ü"}}));
        COMPARE_JSON(Json::parse(lines[5])["event"],
                     Json({{"kind", "stop"},
                           {"project", "harkline"},
                           {"cwd", ""},
                           {"session", "test"},
                           {"message", "Test notification from harkline"},
                           {"detail", ""}}));
        for (const auto& command : commands) // sessions may take long; the others may not
            QCOMPARE(command.timeoutSeconds, command.request["cmd"] == "sessions" ? 15 : 3);
    }

    void repliesAreReadUntilAChunkHoldsTheNewline_data()
    {
        QTest::addColumn<Script>("script");
        QTest::addColumn<int>("members");
        QTest::newRow("split over three writes")
            << chunks({"{\"ok\":tr", "ue,\"name\":", "\"hark\"}\n"}) << 2;
        QTest::newRow("closed without newline") << Script::bytes("{\"ok\":true,\"port\":1}") << 2;
        QTest::newRow("blanks after the object") << Script::bytes("{\"ok\":true} \r\n\t \n") << 1;
        // Reading stops at the newline's chunk: what a later write sends is never read.
        QTest::newRow("junk in a later write") << chunks({"{\"ok\":true}\n", "junk"}, 100) << 1;
        std::string big = Json({{"ok", true}, {"pad", std::string(700000, 'x')}}).dump();
        QTest::newRow("several buffers long")
            << chunks(
                   {big.substr(0, 200000), big.substr(200000, 300000), big.substr(500000) + "\n"})
            << 2;
    }
    void repliesAreReadUntilAChunkHoldsTheNewline()
    {
        QFETCH(Script, script);
        QFETCH(int, members);
        const Json reply = exchange(script);
        QCOMPARE(int(reply.size()), members);
        COMPARE_JSON(reply["ok"], true);
    }

    void malformedRepliesAreBadReplies_data()
    {
        QTest::addColumn<Script>("script");
        QTest::newRow("closed without a byte") << Script::closeWithoutAnswer();
        // The grammar itself is checked against JSONTestSuite below; these are the exchange's.
        const std::pair<const char*, std::string> rows[] = {
            {"not JSON", "hello\n"},
            {"empty array", "[]\n"},
            {"bare number", "42\n"},
            {"string", "\"ok\"\n"},
            {"junk after the newline", "{\"ok\":true}\nxyz"},
            {"two objects", "{\"ok\":true}{}\n"},
            {"cut short", "{\"ok\":true,\"name\":\"ha"},
            {"NUL in a string", std::string("{\"ok\":true,\"n\":\"a\0b\"}\n", 22)},
            {"NUL after the object", std::string("{\"ok\":true}\0\n", 13)}};
        for (const auto& [name, bytes] : rows)
            QTest::newRow(name) << Script::bytes(bytes);
    }
    void malformedRepliesAreBadReplies()
    {
        QFETCH(Script, script);
        QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply, exchange(script));
    }

    // Every text JSONTestSuite says must be refused is refused, every one it says must be
    // accepted is accepted as the library reads it, and of those it leaves open, lone surrogate
    // escapes read as U+FFFD and numbers beyond a double as null.
    void theGrammarIsStrictButForTwoLeniencies()
    {
        const QString fffd = QString(QChar(0xFFFD));
        QFile table(QStringLiteral(DATA "/lenient-expected.json"));
        QVERIFY(table.open(QIODevice::ReadOnly));
        const Json lenient = Json::parse(table.readAll().toStdString());
        const QFileInfoList files =
            QDir(DATA "/jsontestsuite").entryInfoList({"*.json"}, QDir::Files);
        QCOMPARE(files.size(), 303);
        for (const QFileInfo& file : files) {
            QFile in(file.filePath());
            QVERIFY(in.open(QIODevice::ReadOnly));
            const std::string text = in.readAll().toStdString();
            const QString name = file.completeBaseName();
            const Json parsed = harkline::parseReply(text);
            if (name.startsWith("n_")) {
                QVERIFY2(parsed.is_discarded(), qPrintable(name));
            } else if (name.startsWith("y_")) {
                QVERIFY2(parsed == Json::parse(text), qPrintable(name));
            } else {
                QVERIFY2(parsed == lenient.value(name.toStdString(), Json()), qPrintable(name));
            }
        }
        // Escaped backslashes are text, not escapes; several flaws in one text are all mended;
        // a number in a string, or where no value may stand, is left alone.
        const std::pair<const char*, QString> rows[] = {
            {R"(["\\ud83d","\ud83d"])", "[\"\\\\ud83d\",\"" + fffd + "\"]"},
            {R"(["\\\ud83d"])", "[\"\\\\" + fffd + "\"]"},
            // Pairs at the edges of the surrogate ranges stay pairs.
            {R"(["\udbff\udfff\ud800\udc00\ud83d"])", "[\"\U0010FFFF\U00010000" + fffd + "\"]"},
            {R"(["\ud83d\ude00\ud83d", -1e400, "1e400"])",
             "[\"\U0001F600" + fffd + "\",null,\"1e400\"]"},
            {R"({"a":[1E+999 ,2],"b":{"c":-0.5e99999}})", R"({"a":[null,2],"b":{"c":null}})"},
            {R"(["\ud83d",1e400x])", "discarded"},
            {R"(["\ud83d" 1e400])", "discarded"},
            {R"({1e400:1})", "discarded"},
            {R"(["\ud83d\u12"])", "discarded"},
            {R"(["\ud83d	"])", "discarded"}};
        for (const auto& [text, expected] : rows) {
            const Json parsed = harkline::parseReply(text);
            QCOMPARE(parsed.is_discarded() ? QString("discarded")
                                           : QString::fromStdString(parsed.dump()),
                     expected);
        }
    }

    // What the reply was for still arrives: the other sessions, and the status that says the
    // daemon runs.
    void oneOddValueDoesNotVoidTheReply()
    {
        FakeDaemon fake(DaemonClient::socketPath());
        fake.setHandler([](const std::string& line) {
            return Script::bytes(FakeDaemon::commandOf(line) == "status"
                                     ? R"({"ok":true,"name":"desk","port":1e400})"
                                       "\n"
                                     : R"({"ok":true,"sessions":[{"id":"a","title":"Fix \ud83d"},)"
                                       R"({"id":"b","last_ts":-1e400,"queued":2}]})"
                                       "\n");
        });
        const auto status = DaemonClient::ok(DaemonClient::status());
        QVERIFY(status);
        QCOMPARE(harkline::DaemonStatus(*status).name, "desk");
        QCOMPARE(harkline::DaemonStatus(*status).port, 0);
        const auto sessions =
            DaemonClient::sessionsFrom(DaemonClient::ok(DaemonClient::sessions()));
        QCOMPARE(sessions.size(), std::size_t(2));
        QCOMPARE(sessions[0].title, "Fix \uFFFD");
        QCOMPARE(sessions[1].lastActive, harkline::DaemonTime{});
        QCOMPARE(sessions[1].queued, 2);
    }

    void nobodyListeningIsNotRunning()
    {
        const std::string path = DaemonClient::socketPath();
        ::unlink(path.c_str());
        expectNotRunning();
        // A socket file left by a daemon that died: bound, nobody listening.
        const int fd = boundSocket(path);
        QVERIFY(fd >= 0);
        ::close(fd);
        expectNotRunning();
        ::unlink(path.c_str());
        QFile regular(QString::fromStdString(path));
        QVERIFY(regular.open(QIODevice::WriteOnly));
        expectNotRunning();
        regular.remove();
    }

    void silentDaemonCostsOneTimeout()
    {
        QElapsedTimer clock;
        clock.start();
        QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply, exchange(Script::never(), 1));
        QVERIFY2(clock.elapsed() >= 900 && clock.elapsed() < 5000,
                 qPrintable(QString::number(clock.elapsed())));
    }

    // The reply cap sits exactly at kMaxReplyBytes, and the time-out bounds the whole reply, not
    // each read: one byte every 100 ms would otherwise be waited for without end.
    void repliesAreBoundedInSizeAndTime()
    {
        const auto replyOf = [](std::size_t bytes) {
            const std::string head = "{\"ok\":true,\"pad\":\"", tail = "\"}\n";
            return head + std::string(bytes - head.size() - tail.size(), 'x') + tail;
        };
        QVERIFY(exchange(Script::bytes(replyOf(DaemonClient::kMaxReplyBytes)))["ok"] == true);
        QVERIFY_THROWS_EXCEPTION(
            DaemonClient::BadReply,
            exchange(Script::bytes(replyOf(DaemonClient::kMaxReplyBytes + 1))));

        Script trickle;
        for (char c : std::string("{\"ok\":true,\"name\":\"harkline\"}\n"))
            trickle.chunks.emplace_back(1, c);
        trickle.gap = std::chrono::milliseconds(100);
        QElapsedTimer clock;
        clock.start();
        QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply, exchange(trickle, 1));
        QVERIFY2(clock.elapsed() < 1500, qPrintable(QString::number(clock.elapsed())));
    }

    // A daemon that hangs up before reading makes our one write fail; that must be a bad reply
    // and not a SIGPIPE that ends the process (which would end this test run too).
    void writeToAClosedConnectionIsABadReply()
    {
        std::signal(SIGPIPE, SIG_DFL);
        FakeDaemon fake(DaemonClient::socketPath());
        fake.setCloseBeforeRead(true);
        const Json large = {{"cmd", "revoke"}, {"id", std::string(8 << 20, 'i')}};
        QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply, DaemonClient::request(large, 2));
        QVERIFY(!DaemonClient::ok(large, 2));
    }

    void unserialisableRequestPassesTheWritersError()
    {
        FakeDaemon fake(DaemonClient::socketPath());
        const Json broken = {{"cmd", "revoke"}, {"id", "\xff\xfe"}};
        QVERIFY_THROWS_EXCEPTION(Json::type_error, DaemonClient::request(broken, 1));
        QVERIFY(!DaemonClient::ok(broken, 1));
    }

    void okHandsOverOnlyRepliesThatSayOkTrue()
    {
        const std::string accepted = "{\"ok\":true,\"name\":\"n\",\"x\":[1]}";
        for (const std::string& reply :
             {accepted, std::string("{}"), std::string("{\"ok\":false,\"name\":\"n\"}"),
              std::string("{\"ok\":\"true\"}"), std::string("{\"ok\":1}"),
              std::string("{\"ok\":null}"), std::string("{\"ok\":{}}")}) {
            FakeDaemon fake(DaemonClient::socketPath());
            fake.setHandler([&](const std::string&) { return Script::bytes(reply + "\n"); });
            // The raw exchange hands over every one of them; the filter only the first, whole.
            COMPARE_JSON(DaemonClient::request({{"cmd", "status"}}, 2), Json::parse(reply));
            const auto filtered = DaemonClient::ok({{"cmd", "status"}}, 2);
            QVERIFY2(filtered.has_value() == (reply == accepted), reply.c_str());
            if (filtered)
                COMPARE_JSON(*filtered, Json::parse(reply));
        }
    }

    void peerOfAnotherUserIsNotRunning()
    {
        QVERIFY(DaemonClient::peerAllowed(1000, 1000));
        QVERIFY(!DaemonClient::peerAllowed(0, 1000));
        QVERIFY(!DaemonClient::peerAllowed(1000, 0));
        if (::geteuid() != 0)
            QSKIP("serving the socket as another user needs root");

        // A child process that drops to "nobody" serves the socket and would answer ok.
        const std::string path = DaemonClient::socketPath();
        const std::string dir = path.substr(0, path.rfind('/'));
        ::unlink(path.c_str());
        for (const QString& d :
             {home_.path(), home_.path() + "/.local", home_.path() + "/.local/state"})
            QVERIFY(::chmod(d.toUtf8().constData(), 0755) == 0);
        QVERIFY(::chmod(dir.c_str(), 0777) == 0);
        int ready[2]; // the child says when it listens
        QVERIFY(::pipe(ready) == 0);
        const pid_t child = ::fork();
        if (child == 0) { // serves the two requests below
            if (::setgid(65534) != 0 || ::setuid(65534) != 0)
                ::_exit(1);
            FakeDaemon forger(path);
            forger.setHandler([](const std::string&) {
                return Script::answer({{"ok", true}, {"qr", "forged"}});
            });
            (void)!::write(ready[1], "r", 1);
            for (int i = 0; i < 500 && forger.connections() < 2; ++i)
                ::usleep(10000);
            ::_exit(forger.connections() == 2 ? 0 : 3);
        }
        char byte = 0;
        QCOMPARE(::read(ready[0], &byte, 1), ssize_t(1));
        QVERIFY_THROWS_EXCEPTION(DaemonClient::NotRunning,
                                 DaemonClient::request({{"cmd", "pair"}}, 1));
        QVERIFY(!DaemonClient::ok(DaemonClient::pair()));
        int status = 0;
        QCOMPARE(::waitpid(child, &status, 0), child);
        QVERIFY(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        ::unlink(path.c_str());
        ::chmod(dir.c_str(), 0700);
    }

    void noDescriptorOutlivesAnExchange()
    {
        const int before = openDescriptors();
        {
            FakeDaemon fake(DaemonClient::socketPath());
            int n = 0;
            const Script scripts[] = {Script::answer({{"ok", true}}), Script::bytes("garbage\n"),
                                      Script::closeWithoutAnswer(), Script::bytes("[1]\n")};
            fake.setHandler([&](const std::string&) { return scripts[n++ % 4]; });
            for (int i = 0; i < 40; ++i)
                (void)DaemonClient::ok({{"cmd", "status"}}, 2);
            fake.setCloseBeforeRead(true);
            for (int i = 0; i < 10; ++i)
                (void)DaemonClient::ok({{"cmd", "status"}}, 2);
        }
        for (int i = 0; i < 10; ++i) // fake gone: connect fails
            (void)DaemonClient::ok({{"cmd", "status"}}, 2);
        QCOMPARE(openDescriptors(), before);
    }
};

QTEST_GUILESS_MAIN(ExchangeTest)
#include "tst_exchange.moc"
