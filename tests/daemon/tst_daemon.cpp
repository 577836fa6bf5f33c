// The daemon's side of things: the JSON grammar of replies with its two leniencies (the records
// built from them are driven through harklinectl and the model), and one exchange: where the socket
// is, what goes out, and what comes back counting as an answer, a bad reply or no daemon at all;
// bounded in size and time, leaking nothing.

#include "DaemonClient.h"
#include "FakeDaemon.h"
#include "Records.h"
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

using namespace harkline;
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

class DaemonTest : public QObject
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
    // JSON object and nothing else, and only one saying "ok": true passes the filter. The grammar
    // itself is the records suite's. No exchange, whatever it met, leaves a descriptor open.
    void replies_data()
    {
        QTest::addColumn<Script>("script");
        QTest::addColumn<QByteArray>("read"); // empty: a bad reply
        QTest::addColumn<bool>("passes");
        const auto row = [](const char* name, const Script& script, const QByteArray& read,
                            bool passes = true) {
            QTest::newRow(name) << script << read << passes;
        };
        row("split over writes", chunks({"{\"ok\":tr", "ue,\"n\":", "\"h\"}\n"}),
            R"({"n":"h","ok":true})");
        row("closed without newline", Script::bytes("{\"ok\":true,\"p\":[1]}"),
            R"({"ok":true,"p":[1]})");
        row("blanks after", Script::bytes("{\"ok\":true} \r\n\t \n"), kOk);
        row("junk in a later write", chunks({"{\"ok\":true}\n", "junk"}, 100), kOk);
        const std::string big = Json({{"ok", true}, {"pad", std::string(700000, 'x')}}).dump();
        row("several buffers", chunks({big.substr(0, 200000), big.substr(200000) + "\n"}),
            QByteArray::fromStdString(big));
        for (const char* notOk : {"{}", R"({"ok":false})", R"({"ok":"true"})", R"({"ok":1})"})
            row(notOk, Script::bytes(std::string(notOk) + "\n"), notOk, false);
        row("closed without a byte", Script::closeWithoutAnswer(), {});
        const std::pair<const char*, std::string> bad[] = {
            {"array", "[{\"ok\":true}]\n"},
            {"junk after the newline", "{\"ok\":true}\nxyz"},
            {"cut short", "{\"ok\":true,\"name\":\"ha"},
            {"NUL after the object", std::string("{\"ok\":true}\0\n", 13)}};
        for (const auto& [name, bytes] : bad)
            row(name, Script::bytes(bytes), {});
    }
    void replies()
    {
        QFETCH(Script, script);
        QFETCH(QByteArray, read);
        QFETCH(bool, passes);
        const int before = openDescriptors();
        {
            FakeDaemon fake(DaemonClient::socketPath());
            fake.setHandler([script](const std::string&) { return script; });
            if (read.isEmpty())
                QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply,
                                         DaemonClient::request({{"cmd", "status"}}, 2));
            else
                QCOMPARE(dumped(DaemonClient::request({{"cmd", "status"}}, 2)), read);
            QCOMPARE(dumped(DaemonClient::ok({{"cmd", "status"}}, 2)),
                     passes && !read.isEmpty() ? read : "none");
        }
        QCOMPARE(openDescriptors(), before);
    }

    void nobodyListeningIsNotRunning()
    {
        const int before = openDescriptors();
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
        QCOMPARE(openDescriptors(), before);
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
        const int before = openDescriptors();
        {
            FakeDaemon fake(DaemonClient::socketPath());
            fake.setCloseBeforeRead(true);
            const Json large = {{"cmd", "revoke"}, {"id", std::string(8 << 20, 'i')}};
            QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply, DaemonClient::request(large, 2));
            QVERIFY(!DaemonClient::ok(large, 2));
            const Json broken = {{"cmd", "revoke"}, {"id", "\xff\xfe"}};
            QVERIFY_THROWS_EXCEPTION(Json::type_error, DaemonClient::request(broken, 1));
            QVERIFY(!DaemonClient::ok(broken, 1));
        }
        QCOMPARE(openDescriptors(), before);
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

    // Every text JSONTestSuite says must be refused is refused, every one it says must be
    // accepted is accepted as the library reads it, and of those it leaves open, lone surrogate
    // escapes read as U+FFFD and numbers beyond a double as null.
    void theGrammarIsStrictButForTwoLeniencies()
    {
        const QString fffd = QString(QChar(0xFFFD));
        const Json lenient =
            Json::parse(harkline::test::readFile(DATA "/lenient-expected.json").toStdString());
        const QFileInfoList files =
            QDir(DATA "/jsontestsuite").entryInfoList({"*.json"}, QDir::Files);
        QCOMPARE(files.size(), 303);
        for (const QFileInfo& file : files) {
            QFile in(file.filePath());
            QVERIFY(in.open(QIODevice::ReadOnly));
            const std::string text = in.readAll().toStdString();
            const std::string name = file.completeBaseName().toStdString();
            const Json parsed = parseReply(text);
            const Json expected = name[0] == 'n'   ? Json(Json::value_t::discarded)
                                  : name[0] == 'y' ? Json::parse(text)
                                                   : lenient.value(name, Json());
            QVERIFY2(parsed.is_discarded() ? expected.is_discarded() : parsed == expected,
                     name.c_str());
        }
        // Escaped backslashes are text, not escapes; several flaws in one text are all mended;
        // a number in a string, or where no value may stand, is left alone.
        const std::pair<const char*, QString> rows[] = {
            {R"(["\\ud83d","\ud83d"])", "[\"\\\\ud83d\",\"" + fffd + "\"]"},
            {R"(["\\\ud83d"])", "[\"\\\\" + fffd + "\"]"},
            // Pairs at the edges of the surrogate ranges stay pairs.
            {R"(["\udbff\udfff\ud800\udc00\ud83d"])", "[\"\U0010FFFF\U00010000" + fffd + "\"]"},
            {R"(["\ud83d\ude00\udc00", -1e400, "1e400"])",
             "[\"\U0001F600" + fffd + "\",null,\"1e400\"]"},
            {R"({"a":[1E+999 ,2],"b":{"c":-0.5e99999},"d":1e308})",
             R"({"a":[null,2],"b":{"c":null},"d":1e+308})"},
            {R"(["\ud83d",1e400x])", "discarded"},
            {R"(["\ud83d" 1e400])", "discarded"},
            {R"({1e400:1})", "discarded"},
            {R"(["\ud83d\u12"])", "discarded"},
            {R"(["\ud83d	"])", "discarded"}};
        for (const auto& [text, expected] : rows) {
            const Json parsed = parseReply(text);
            QCOMPARE(parsed.is_discarded() ? "discarded" : QString::fromStdString(parsed.dump()),
                     expected);
        }
    }

    // Records take each member only from its own type, else the default: a list with one
    // stranger is dropped whole, a whole number must fit 64 bits, an offer lasts 300 s unless
    // the daemon gives a number. (Well-formed records are harklinectl's and the model's.)
    void recordsTakeOnlyWhatFits()
    {
        const auto status = [](const std::string& members) {
            return DaemonStatus(Json::parse("{" + members + "}"));
        };
        QVERIFY(status(R"("name":5,"hosts":["a",1])") == DaemonStatus());
        const QStringList values = QString("8.08e3 -3.5 true -9223372036854775808.0 "
                                           "9223372036854775807 9223372036854775808 "
                                           "9.223372036854775808e18")
                                       .split(' ');
        const std::int64_t ports[] = {8080, 0, 0, INT64_MIN, INT64_MAX, 0, 0}; // one per value
        for (qsizetype i = 0; i < values.size(); ++i)
            QVERIFY2(status("\"port\":" + values[i].toStdString()).port == ports[i],
                     qPrintable(values[i]));
        const Json lifetime = {{"qr", "hk://p"}, {"expires_in", "60"}};
        QCOMPARE(DaemonClient::offerFrom(lifetime)->expiresIn, 300);
    }
};

QTEST_GUILESS_MAIN(DaemonTest)
#include "tst_daemon.moc"
