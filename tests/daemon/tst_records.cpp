// Reading replies: the JSON grammar with its two leniencies, and the records built from it, which
// take each member only from its own type and never fail.

#include "DaemonClient.h"
#include "Records.h"

#include <QDir>
#include <QTest>

#include <algorithm>

using namespace harkline;

namespace {
// JSON written with ' for " to stay readable: parse("{'ok':true}").
Json parse(std::string text)
{
    std::replace(text.begin(), text.end(), '\'', '"');
    return Json::parse(text);
}
double seconds(DaemonTime t)
{
    return t.time_since_epoch().count();
}
QString read(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : "(missing)";
}
} // namespace

class RecordsTest : public QObject
{
    Q_OBJECT

private slots:
    // Every text JSONTestSuite says must be refused is refused, every one it says must be
    // accepted is accepted as the library reads it, and of those it leaves open, lone surrogate
    // escapes read as U+FFFD and numbers beyond a double as null.
    void theGrammarIsStrictButForTwoLeniencies()
    {
        const QString fffd = QString(QChar(0xFFFD));
        const Json lenient = parse(read(DATA "/lenient-expected.json").toStdString());
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

    void statusTakesEachFieldOnlyFromItsOwnType()
    {
        DaemonStatus expected;
        expected.name = "hark";
        expected.port = 8080;
        expected.hosts = {"10.0.0.2", "mac.local"};
        expected.devices = 2;
        expected.connected = 1;
        expected.pending = 3;
        QCOMPARE(DaemonStatus(parse("{'ok':true,'name':'hark','port':8080,'hosts':['10.0.0.2',"
                                    "'mac.local'],'devices':2,'connected':1,'pending':3,'x':1}")),
                 expected);
        // Anything but a JSON string for text, or a non-array for a list, is the default; a list
        // with one stranger is dropped whole.
        for (const char* odd : {"{'name':5,'hosts':'a','port':null}", "{'hosts':['a',1]}", "[1,2]"})
            QVERIFY2(DaemonStatus(parse(odd)) == DaemonStatus(), odd);
        QVERIFY(DaemonStatus(parse("{'hosts':['a','b']}")) !=
                DaemonStatus(parse("{'hosts':['b','a']}")));
    }

    void wholeNumbers()
    {
        const std::pair<const char*, std::int64_t> rows[] = {{"8080", 8080},
                                                             {"8080.0", 8080},
                                                             {"8.08e3", 8080},
                                                             {"-3", -3},
                                                             {"-3.5", 0},
                                                             {"\"8080\"", 0},
                                                             {"true", 0},
                                                             {"9223372036854775807", INT64_MAX},
                                                             {"-9223372036854775808", INT64_MIN},
                                                             {"-9223372036854775808.0", INT64_MIN},
                                                             {"-9.3e18", 0},
                                                             {"9223372036854775808", 0},
                                                             {"9.223372036854775808e18", 0},
                                                             {"1e300", 0}};
        for (const auto& [value, port] : rows)
            QVERIFY2(DaemonStatus(parse("{'port':" + std::string(value) + "}")).port == port,
                     value);
    }

    void sessionsAndPhones()
    {
        const ClaudeSession session(
            parse("{'id':'s1','project':'harkline','title':'Fix tests','state':'waiting',"
                  "'listening':true,'last_ts':1700000000000,'last_text':'Done?','queued':2}"));
        ClaudeSession expected;
        expected.id = "s1";
        expected.project = "harkline";
        expected.title = "Fix tests";
        expected.state = "waiting";
        expected.listening = true;
        expected.lastActive = DaemonTime(std::chrono::seconds(1'700'000'000));
        expected.lastText = "Done?";
        expected.queued = 2;
        QCOMPARE(session, expected);
        // Flags are the literals only; times are milliseconds that keep their fraction.
        for (const char* odd : {"{}", "{'listening':'true'}", "{'listening':1}", "{'last_ts':'1'}"})
            QVERIFY2(ClaudeSession(parse(odd)) == ClaudeSession(), odd);
        const PairedDevice half(parse("{'id':'p','name':'W','created':1700000000000.5}"));
        QCOMPARE(seconds(half.paired), 1700000000.0005);
        QVERIFY(half != PairedDevice(parse("{'id':'p','name':'W','created':1700000000000}")));
        QCOMPARE(PairedDevice(parse("{'name':'W','id':'p','created':1.7e12}")),
                 PairedDevice(parse("{'id':'p','name':'W','created':1700000000000}")));
    }

    void listReadersKeepOrderOrGiveNothing()
    {
        const auto devices =
            DaemonClient::devicesFrom(parse("{'ok':true,'devices':[{'id':'b'},{'id':'a'},{}]}"));
        QCOMPARE(devices.size(), std::size_t(3));
        QCOMPARE(devices[0].id + devices[1].id, std::string("ba"));
        for (const char* bad :
             {"{'ok':true}", "{'devices':{}}", "{'devices':[{},1]}", "{'sessions':[{}]}"})
            QVERIFY2(DaemonClient::devicesFrom(parse(bad)).empty(), bad);
        QVERIFY(DaemonClient::devicesFrom(std::nullopt).empty());
        QCOMPARE(DaemonClient::sessionsFrom(parse("{'sessions':[{'id':'x'},{'id':'x'}]}")).size(),
                 std::size_t(2)); // duplicates are the lists' business
        QVERIFY(DaemonClient::sessionsFrom(parse("{'sessions':[{},[]]}")).empty());
    }

    void pairingOfferAndConnectedCount()
    {
        const std::pair<const char*, std::int64_t> offered[] = {
            {"120", 120}, {"60.0", 60}, {"0", 0}, {"\"120\"", 300}, {"null", 300}};
        for (const auto& [lifetime, expiresIn] : offered) {
            const auto offer = DaemonClient::offerFrom(
                parse("{\"qr\":\"hk://p\",\"expires_in\":" + std::string(lifetime) + "}"));
            QVERIFY2(offer && offer->payload == "hk://p" && offer->expiresIn == expiresIn,
                     lifetime);
        }
        QCOMPARE(DaemonClient::offerFrom(parse("{'qr':'hk://p'}"))->expiresIn, 300);
        for (const char* refused : {"{'qr':'','expires_in':120}", "{'qr':42}", "{}"})
            QVERIFY2(!DaemonClient::offerFrom(parse(refused)), refused);
        QVERIFY(!DaemonClient::offerFrom(std::nullopt));
        QCOMPARE(DaemonClient::connectedFrom(parse("{'connected':2}")), std::int64_t(2));
        QCOMPARE(DaemonClient::connectedFrom(parse("{'connected':'2'}")), std::int64_t(0));
        QCOMPARE(DaemonClient::connectedFrom(std::nullopt), std::int64_t(0));
    }
};

QTEST_GUILESS_MAIN(RecordsTest)
#include "tst_records.moc"
