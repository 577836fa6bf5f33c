// The JSON grammar of replies with its two leniencies, and one exchange: where the socket is, and
// what comes back counting as an answer, a bad reply or no daemon; bounded, leaking nothing.

#include "DaemonClient.h"
#include "FakeDaemon.h"
#include "TestHome.h"

#include <QDir>
#include <QElapsedTimer>
#include <QTest>

#include <csignal>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace harkline;
using harkline::test::FakeDaemon;
using Script = FakeDaemon::Script;

Q_DECLARE_METATYPE(Script)

namespace {
const std::string kSuffix = "/.local/state/harkline/harkline.sock";
const Json kStatus = {{"cmd", "status"}};

Script chunks(std::vector<std::string> parts, int gapMs)
{
    Script script{std::move(parts)};
    script.gap = std::chrono::milliseconds(gapMs);
    return script;
}

Json exchange(const Script& script, int timeout = 2)
{
    FakeDaemon fake(DaemonClient::socketPath());
    fake.setScript(script);
    return DaemonClient::request(kStatus, timeout);
}

void expectNotRunning()
{
    QVERIFY_THROWS_EXCEPTION(DaemonClient::NotRunning, DaemonClient::request(kStatus, 1));
    QVERIFY(!DaemonClient::ok(kStatus, 1));
}

// `call` fails with E after the one-second time-out: not sooner, not much later.
template <typename E, typename F> void failsAfterOneTimeout(F call)
{
    QElapsedTimer clock;
    clock.start();
    QVERIFY_THROWS_EXCEPTION(E, call());
    QVERIFY2(clock.elapsed() >= 900 && clock.elapsed() < 2500,
             qPrintable(QString::number(clock.elapsed())));
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
    int descriptors_ = 0;

    // The socket path once HOME makes it `bytes` long, with USER and LOGNAME (null: unset).
    std::string pathFor(std::size_t bytes, const char* user, const char* logname = nullptr)
    {
        const std::size_t pad = bytes - kSuffix.size() - home_.path().toUtf8().size() - 3;
        qputenv("HOME", (home_.path().toStdString() + "/" + std::string(pad, 'h') + "é").c_str());
        user ? qputenv("USER", user) : qunsetenv("USER");
        logname ? qputenv("LOGNAME", logname) : qunsetenv("LOGNAME");
        return DaemonClient::socketPath();
    }

private slots:
    // No exchange, whatever it met, leaves a descriptor open.
    void init() { descriptors_ = openDescriptors(); }
    void cleanup()
    {
        qputenv("HOME", home_.path().toUtf8());
        QCOMPARE(openDescriptors(), descriptors_);
    }

    // Under the home folder while it fits 103 bytes (é counts two), else /tmp under the user's
    // name; a fallback too long is refused before any connect; a stale socket is no daemon.
    void socketPath()
    {
        const std::string fits = pathFor(103, "ada");
        QCOMPARE(fits, qgetenv("HOME").toStdString() + kSuffix);
        QCOMPARE(pathFor(104, "ada", "bob"), std::string("/tmp/harkline-ada.sock"));
        QCOMPARE(pathFor(200, nullptr, "bob"), std::string("/tmp/harkline-bob.sock"));
        QCOMPARE(pathFor(104, nullptr), std::string("/tmp/harkline-user.sock"));

        FakeDaemon truncated(pathFor(150, std::string(100, 'u').c_str()).substr(0, 107));
        expectNotRunning();
        QCOMPARE(truncated.connections(), 0);

        qputenv("HOME", home_.path().toUtf8());
        QVERIFY(FakeDaemon::leaveStaleSocket(DaemonClient::socketPath()));
        expectNotRunning();
    }

    void testNotificationRequest()
    {
        FakeDaemon fake(DaemonClient::socketPath());
        QVERIFY(DaemonClient::ok(DaemonClient::emitTest()));
        QCOMPARE(fake.requests().at(0),
                 R"({"cmd":"emit","event":{"cwd":"","detail":"","kind":"stop",)"
                 R"("message":"Test notification from harkline","project":"harkline",)"
                 R"("session":"test"}})"
                 "\n");
    }

    // A reply is read until a chunk holds the newline, or the daemon closes; it must then be one
    // JSON object and nothing else, and only one saying "ok": true passes the filter.
    void replies_data()
    {
        QTest::addColumn<Script>("script");
        QTest::addColumn<QByteArray>("read"); // empty: a bad reply
        QTest::addColumn<bool>("passes");
        const auto row = [](const char* name, const Script& script, const QByteArray& read,
                            bool passes = true) {
            QTest::newRow(name) << script << read << passes;
        };
        row("split over writes", chunks({"{\"ok\":tr", "ue,\"n\":", "\"h\"}\n"}, 20),
            R"({"n":"h","ok":true})");
        row("closed without newline", Script::bytes("{\"ok\":true,\"p\":[1]}"),
            R"({"ok":true,"p":[1]})");
        row("junk in a later write", chunks({"{\"ok\":true}\n", "junk"}, 100), R"({"ok":true})");
        for (const char* notOk : {"{}", R"({"ok":false})", R"({"ok":"true"})", R"({"ok":1})"})
            row(notOk, Script::bytes(std::string(notOk) + "\n"), notOk, false);
        row("array", Script::bytes("[{\"ok\":true}]\n"), {});
        row("junk after the newline", Script::bytes("{\"ok\":true}\nxyz"), {});
        row("cut short", Script::bytes("{\"ok\":true,\"name\":\"ha"), {});
    }
    void replies()
    {
        QFETCH(Script, script);
        QFETCH(QByteArray, read);
        QFETCH(bool, passes);
        if (read.isEmpty())
            QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply, exchange(script));
        else
            QCOMPARE(QByteArray::fromStdString(exchange(script).dump()), read);
        FakeDaemon fake(DaemonClient::socketPath());
        fake.setScript(script);
        QCOMPARE(DaemonClient::ok(kStatus, 2).has_value(), passes && !read.isEmpty());
    }

    // kMaxReplyBytes are read, one more is not; silence, or a byte every 100 ms, costs one
    // time-out.
    void repliesAreBoundedInSizeAndTime()
    {
        const auto replyOf = [](std::size_t bytes) {
            const std::string head = "{\"ok\":true,\"pad\":\"", tail = "\"}\n";
            return Script::bytes(head + std::string(bytes - head.size() - tail.size(), 'x') + tail);
        };
        QVERIFY(exchange(replyOf(DaemonClient::kMaxReplyBytes))["ok"] == true);
        QVERIFY_THROWS_EXCEPTION(DaemonClient::BadReply,
                                 exchange(replyOf(DaemonClient::kMaxReplyBytes + 1)));
        std::vector<std::string> bytes;
        for (char c : std::string("{\"ok\":true,\"name\":\"harkline\"}\n"))
            bytes.emplace_back(1, c);
        for (const Script& slow : {Script::never(), chunks(bytes, 100)})
            failsAfterOneTimeout<DaemonClient::BadReply>([&] { exchange(slow, 1); });
    }

    // Once a stuck daemon's backlog is full, connecting waits: for one time-out, not for good.
    void aDaemonThatNoLongerAcceptsCostsOneTimeout()
    {
        const std::string path = DaemonClient::socketPath();
        ::unlink(path.c_str());
        sockaddr_un address{AF_UNIX, {}};
        std::memcpy(address.sun_path, path.data(), path.size());
        const auto at = reinterpret_cast<sockaddr*>(&address);
        std::vector<int> fds{::socket(AF_UNIX, SOCK_STREAM, 0)}; // the listener, then the queue
        QVERIFY(::bind(fds[0], at, sizeof address) == 0 && ::listen(fds[0], 0) == 0);
        for (int fd; (fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)) >= 0;) {
            fds.push_back(fd);
            if (::connect(fd, at, sizeof address) != 0)
                break;
        }
        failsAfterOneTimeout<DaemonClient::NotRunning>([] { DaemonClient::request(kStatus, 1); });
        for (const int fd : fds)
            ::close(fd);
        ::unlink(path.c_str());
    }

    // A hang-up before reading is a bad reply, not a SIGPIPE; an unwritable request throws.
    void failedWrites()
    {
        std::signal(SIGPIPE, SIG_DFL);
        FakeDaemon fake(DaemonClient::socketPath());
        fake.setCloseBeforeRead(true);
        QVERIFY_THROWS_EXCEPTION(
            DaemonClient::BadReply,
            DaemonClient::request({{"cmd", "revoke"}, {"id", std::string(8 << 20, 'i')}}, 2));
        QVERIFY_THROWS_EXCEPTION(Json::type_error,
                                 DaemonClient::request({{"cmd", "revoke"}, {"id", "\xff\xfe"}}, 1));
    }

    // Anyone can bind the /tmp fallback path; only a daemon of our own user may answer.
    void peerOfAnotherUserIsNotRunning()
    {
        QVERIFY(!DaemonClient::peerAllowed(0, 1000) && !DaemonClient::peerAllowed(1000, 0));
        if (::geteuid() != 0)
            QSKIP("listening as another user needs root");
        const std::string path = pathFor(200, ("peer-" + std::to_string(::getpid())).c_str());
        QVERIFY(::seteuid(65534) == 0); // "nobody" listens, and would answer ok
        std::optional<FakeDaemon> forger;
        try {
            forger.emplace(path);
        } catch (...) {
        }
        QVERIFY(::seteuid(0) == 0 && forger);
        forger->setScript(Script::answer({{"ok", true}, {"qr", "forged"}}));
        expectNotRunning();
        QTRY_COMPARE(forger->connections(), 2); // connected, then refused
    }

    // JSONTestSuite's refused texts are refused, its accepted ones read as the library reads them;
    // of those it leaves open, lone surrogates read as U+FFFD and numbers beyond a double as null.
    void theGrammarIsStrictButForTwoLeniencies()
    {
        const Json lenient =
            Json::parse(harkline::test::readFile(DATA "/lenient-expected.json").toStdString());
        const QFileInfoList files =
            QDir(DATA "/jsontestsuite").entryInfoList({"*.json"}, QDir::Files);
        QCOMPARE(files.size(), 303);
        for (const QFileInfo& file : files) {
            const std::string text = harkline::test::readFile(file.filePath()).toStdString();
            const std::string name = file.completeBaseName().toStdString();
            const Json parsed = parseReply(text);
            const Json expected = name[0] == 'n'   ? Json(Json::value_t::discarded)
                                  : name[0] == 'y' ? Json::parse(text)
                                                   : lenient.value(name, Json());
            QVERIFY2(parsed.is_discarded() ? expected.is_discarded() : parsed == expected,
                     name.c_str());
        }
        // Escaped backslashes are text, not escapes; pairs at the edges of the surrogate ranges
        // stay pairs; several flaws in one text are all mended; a number in a string is text.
        const QString fffd = QString(QChar(0xFFFD));
        const std::pair<const char*, QString> rows[] = {
            {R"(["\\ud83d","\\\ud83d"])", "[\"\\\\ud83d\",\"\\\\" + fffd + "\"]"},
            {R"(["\udbff\udfff\ud800\udc00\ud83d"])", "[\"\U0010FFFF\U00010000" + fffd + "\"]"},
            {R"(["\ud83d\ude00\udc00", -1e400, "1e400"])",
             "[\"\U0001F600" + fffd + "\",null,\"1e400\"]"},
            {R"({"a":[1E+999 ,2],"b":{"c":-0.5e99999},"d":1e308})",
             R"({"a":[null,2],"b":{"c":null},"d":1e+308})"}};
        for (const auto& [text, expected] : rows)
            QCOMPARE(QString::fromStdString(parseReply(text).dump()), expected);
    }

    // A member of another type gives the default (a list with one stranger is dropped whole, an
    // offer lasts 300 s); a whole number must fit 64 bits. Well-formed ones: harklinectl, model.
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
