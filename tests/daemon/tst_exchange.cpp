// One exchange with the daemon: where its socket is, what goes out, and what comes back counting
// as an answer, a bad reply or no daemon at all; bounded in size and time, leaking nothing.

#include "DaemonClient.h"
#include "FakeDaemon.h"
#include "TestHome.h"

#include <QDir>
#include <QElapsedTimer>
#include <QTest>

#include <csignal>
#include <pwd.h>
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
const std::string kSuffix = "/.local/state/harkline/harkline.sock";

// Points HOME at a folder whose socket path is exactly `bytes` long, ending in `tail`.
void setHomeForPathOf(std::size_t bytes, const QString& base, const std::string& tail = "")
{
    const std::size_t pad = bytes - kSuffix.size() - base.toUtf8().size() - 1 - tail.size();
    qputenv("HOME", (base.toStdString() + "/" + std::string(pad, 'h') + tail).c_str());
}

void setOrUnset(const char* name, const char* value)
{
    value ? qputenv(name, value) : qunsetenv(name);
}

Script chunks(std::vector<std::string> parts, int gapMs = 20)
{
    Script script{std::move(parts)};
    script.gap = std::chrono::milliseconds(gapMs);
    return script;
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

const QByteArray kOk = R"({"ok":true})";

QByteArray dumped(const std::optional<Json>& value)
{
    return value ? QByteArray::fromStdString(value->dump()) : QByteArray("none");
}

int openDescriptors()
{
    return int(QDir("/proc/self/fd").entryList(QDir::Files | QDir::System).size());
}
} // namespace

class ExchangeTest : public QObject
{
    Q_OBJECT
    harkline::test::TestHome home_;

private slots:
    // Under the home folder while the path fits 103 bytes (counted in UTF-8), else in /tmp under
    // the user's name; a fallback that is itself too long is refused before any connect.
    void socketPath()
    {
        struct Row
        {
            std::size_t bytes;
            const char* tail;
            const char* user; // null: unset
            const char* logname;
            const char* expected; // null: under the home folder
        };
        for (const Row& row : {Row{103, "é", "ada", "bob", nullptr},
                               Row{104, "é", "ada", "bob", "/tmp/harkline-ada.sock"},
                               Row{200, "", nullptr, "bob", "/tmp/harkline-bob.sock"},
                               Row{104, "", nullptr, nullptr, "/tmp/harkline-user.sock"}}) {
            setHomeForPathOf(row.bytes, home_.path(), row.tail);
            setOrUnset("USER", row.user);
            setOrUnset("LOGNAME", row.logname);
            const std::string path = DaemonClient::socketPath();
            QCOMPARE(path, row.expected ? row.expected : qgetenv("HOME").toStdString() + kSuffix);
        }
        qputenv("HOME", ""); // empty: the password database's home
        QCOMPARE(DaemonClient::socketPath(), std::string(::getpwuid(::getuid())->pw_dir) + kSuffix);

        setHomeForPathOf(150, home_.path());
        qputenv("USER", std::string(100, 'u').c_str());
        const std::string path = DaemonClient::socketPath();
        FakeDaemon truncated(path.substr(0, 107));
        expectNotRunning();
        QCOMPARE(truncated.connections(), 0);
        qputenv("HOME", home_.path().toUtf8());
    }

    void commandsGoOutAsOneCompactLineEach()
    {
        FakeDaemon fake(DaemonClient::socketPath());
        const std::vector<DaemonClient::Command> commands = {
            DaemonClient::status(), DaemonClient::devices(),          DaemonClient::sessions(),
            DaemonClient::pair(),   DaemonClient::revoke("ph one ü"), DaemonClient::emitTest()};
        for (const auto& command : commands)
            QVERIFY(DaemonClient::ok(command));
        QCOMPARE(fake.connections(), int(commands.size()));
        QCOMPARE(
            fake.requests(),
            std::vector<std::string>(
                {"{\"cmd\":\"status\"}\n", "{\"cmd\":\"devices\"}\n", "{\"cmd\":\"sessions\"}\n",
                 "{\"cmd\":\"pair\"}\n", "{\"cmd\":\"revoke\",\"id\":\"ph one ü\"}\n",
                 "{\"cmd\":\"emit\",\"event\":{\"cwd\":\"\",\"detail\":\"\",\"kind\":\"stop\","
                 "\"message\":\"Test notification from harkline\",\"project\":\"harkline\","
                 "\"session\":\"test\"}}\n"}));
        for (const auto& command : commands) // sessions may take long; the others may not
            QCOMPARE(command.timeoutSeconds, command.request["cmd"] == "sessions" ? 15 : 3);
    }

    // A reply is read until a chunk holds the newline, or the daemon closes; it must then be one
    // JSON object and nothing else. The grammar itself is the records suite's.
    void replies_data()
    {
        QTest::addColumn<Script>("script");
        QTest::addColumn<QByteArray>("read"); // empty: a bad reply
        QTest::newRow("split over writes") << chunks({"{\"ok\":tr", "ue,\"n\":", "\"h\"}\n"})
                                           << QByteArray(R"({"n":"h","ok":true})");
        QTest::newRow("closed without newline")
            << Script::bytes("{\"ok\":true,\"p\":1}") << QByteArray(R"({"ok":true,"p":1})");
        QTest::newRow("blanks after") << Script::bytes("{\"ok\":true} \r\n\t \n") << kOk;
        QTest::newRow("junk in a later write") << chunks({"{\"ok\":true}\n", "junk"}, 100) << kOk;
        const std::string big = Json({{"ok", true}, {"pad", std::string(700000, 'x')}}).dump();
        QTest::newRow("several buffers")
            << chunks({big.substr(0, 200000), big.substr(200000) + "\n"})
            << QByteArray::fromStdString(big);
        QTest::newRow("closed without a byte") << Script::closeWithoutAnswer() << QByteArray();
        const std::pair<const char*, std::string> bad[] = {
            {"array", "[{\"ok\":true}]\n"},
            {"string", "\"ok\"\n"},
            {"junk after the newline", "{\"ok\":true}\nxyz"},
            {"cut short", "{\"ok\":true,\"name\":\"ha"},
            {"NUL in a string", std::string("{\"ok\":true,\"n\":\"a\0b\"}\n", 22)},
            {"NUL after the object", std::string("{\"ok\":true}\0\n", 13)}};
        for (const auto& [name, bytes] : bad)
            QTest::newRow(name) << Script::bytes(bytes) << QByteArray();
    }
    void replies()
    {
        QFETCH(Script, script);
        QFETCH(QByteArray, read);
        if (read.isEmpty())
            QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply, exchange(script));
        else
            QCOMPARE(dumped(exchange(script)), read);
    }

    void nobodyListeningIsNotRunning()
    {
        const std::string path = DaemonClient::socketPath();
        ::unlink(path.c_str());
        expectNotRunning();
        QVERIFY(FakeDaemon::leaveStaleSocket(path));
        expectNotRunning();
        ::unlink(path.c_str());
        QFile regular(QString::fromStdString(path));
        QVERIFY(regular.open(QIODevice::WriteOnly));
        expectNotRunning();
        regular.remove();
    }

    // A reply of exactly kMaxReplyBytes is read, one byte more is not; a silent daemon costs one
    // time-out, and so does one that sends a byte every 100 ms: the limit bounds the whole reply.
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
        for (const Script& slow : {Script::never(), trickle}) {
            QElapsedTimer clock;
            clock.start();
            QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply, exchange(slow, 1));
            QVERIFY2(clock.elapsed() >= 900 && clock.elapsed() < 2500,
                     qPrintable(QString::number(clock.elapsed())));
        }
    }

    // A daemon stuck before accepting: once its backlog is full, connecting waits, and that
    // wait is bounded by the time-out too, or every refresh would hold a thread for good.
    void aDaemonThatNoLongerAcceptsCostsOneTimeout()
    {
        const std::string path = DaemonClient::socketPath();
        ::unlink(path.c_str());
        sockaddr_un address{AF_UNIX, {}};
        std::memcpy(address.sun_path, path.data(), path.size());
        const auto at = reinterpret_cast<sockaddr*>(&address);
        const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
        QVERIFY(::bind(listener, at, sizeof address) == 0 && ::listen(listener, 0) == 0);
        std::vector<int> queued;
        for (int fd; (fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)) >= 0;) {
            queued.push_back(fd);
            if (::connect(fd, at, sizeof address) != 0)
                break;
        }
        QElapsedTimer clock;
        clock.start();
        QVERIFY_THROWS_EXCEPTION(DaemonClient::NotRunning,
                                 DaemonClient::request({{"cmd", "status"}}, 1));
        QVERIFY2(clock.elapsed() >= 900 && clock.elapsed() < 2500,
                 qPrintable(QString::number(clock.elapsed())));
        for (const int fd : queued)
            ::close(fd);
        ::close(listener);
        ::unlink(path.c_str());
    }

    // A daemon that hangs up before reading fails our write: a bad reply, not a SIGPIPE that ends
    // the process. A request that cannot be written at all passes the writer's error.
    void failedWrites()
    {
        std::signal(SIGPIPE, SIG_DFL);
        FakeDaemon fake(DaemonClient::socketPath());
        fake.setCloseBeforeRead(true);
        const Json large = {{"cmd", "revoke"}, {"id", std::string(8 << 20, 'i')}};
        QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply, DaemonClient::request(large, 2));
        QVERIFY(!DaemonClient::ok(large, 2));
        const Json broken = {{"cmd", "revoke"}, {"id", "\xff\xfe"}};
        QVERIFY_THROWS_EXCEPTION(Json::type_error, DaemonClient::request(broken, 1));
        QVERIFY(!DaemonClient::ok(broken, 1));
    }

    void okHandsOverOnlyRepliesThatSayOkTrue()
    {
        const std::string accepted = "{\"ok\":true,\"name\":\"n\",\"x\":[1]}";
        for (const std::string& reply :
             {accepted, std::string("{}"), std::string("{\"ok\":false}"),
              std::string("{\"ok\":\"true\"}"), std::string("{\"ok\":1}")}) {
            FakeDaemon fake(DaemonClient::socketPath());
            fake.setHandler([&](const std::string&) { return Script::bytes(reply + "\n"); });
            // The raw exchange hands over every one of them; the filter only the first, whole.
            const QByteArray whole = dumped(Json::parse(reply));
            QCOMPARE(dumped(DaemonClient::request({{"cmd", "status"}}, 2)), whole);
            QCOMPARE(dumped(DaemonClient::ok({{"cmd", "status"}}, 2)),
                     reply == accepted ? whole : "none");
        }
    }

    // Anyone can bind the /tmp fallback path; only a daemon of our own user may answer.
    void peerOfAnotherUserIsNotRunning()
    {
        QVERIFY(DaemonClient::peerAllowed(1000, 1000));
        QVERIFY(!DaemonClient::peerAllowed(0, 1000) && !DaemonClient::peerAllowed(1000, 0));
        if (::geteuid() != 0)
            QSKIP("serving the socket as another user needs root");
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
        if (child == 0) { // "nobody" serves the two requests below, and would answer ok
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
