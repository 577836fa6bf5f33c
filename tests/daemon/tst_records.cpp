#include "DaemonClient.h"
#include "Records.h"

#include <QTest>

using namespace harkline;

namespace {
Json parse(const std::string& text)
{
    return Json::parse(text);
}
double seconds(DaemonTime t)
{
    return t.time_since_epoch().count();
}
} // namespace

class RecordsTest : public QObject
{
    Q_OBJECT

private slots:
    void statusTakesEachFieldOnlyFromItsOwnType()
    {
        DaemonStatus expected;
        expected.name = "hark";
        expected.port = 8080;
        expected.hosts = {"10.0.0.2", "mac.local"};
        expected.devices = 2;
        expected.connected = 1;
        expected.pending = 3;
        QCOMPARE(DaemonStatus(parse("{\"ok\":true,\"name\":\"hark\",\"port\":8080,\"hosts\":"
                                    "[\"10.0.0.2\",\"mac.local\"],\"devices\":2,"
                                    "\"connected\":1,\"pending\":3,\"extra\":[1]}")),
                 expected);
        // Anything but a JSON string for text, or a non-array for a list, is the default.
        QCOMPARE(DaemonStatus(parse("{\"name\":5,\"hosts\":\"a\",\"port\":null}")), DaemonStatus());
        // A list with one stranger is dropped whole; order is part of equality.
        QVERIFY(DaemonStatus(parse("{\"hosts\":[\"a\",1]}")).hosts.empty());
        QVERIFY(DaemonStatus(parse("{\"hosts\":[\"a\",\"b\"]}")) !=
                DaemonStatus(parse("{\"hosts\":[\"b\",\"a\"]}")));
        QCOMPARE(DaemonStatus(parse("[1,2]")), DaemonStatus()); // not an object: no failure
    }

    void wholeNumbers()
    {
        const std::pair<const char*, std::int64_t> rows[] = {{"8080", 8080},
                                                             {"8080.0", 8080},
                                                             {"8.08e3", 8080},
                                                             {"-3", -3},
                                                             {"8080.5", 0},
                                                             {"\"8080\"", 0},
                                                             {"true", 0},
                                                             {"9223372036854775807", INT64_MAX},
                                                             {"-9223372036854775808", INT64_MIN},
                                                             {"9223372036854775808", 0},
                                                             {"9.223372036854775808e18", 0},
                                                             {"1e300", 0}};
        for (const auto& [value, port] : rows)
            QVERIFY2(DaemonStatus(parse("{\"port\":" + std::string(value) + "}")).port == port,
                     value);
    }

    void sessionFieldsAndEquality()
    {
        const ClaudeSession session(parse(
            "{\"id\":\"s1\",\"project\":\"harkline\",\"title\":\"Fix tests\",\"state\":\"waiting\","
            "\"listening\":true,\"last_ts\":1700000000000,\"last_text\":\"Done?\",\"queued\":2}"));
        QCOMPARE(session.id, std::string("s1"));
        QCOMPARE(session.project, std::string("harkline"));
        QCOMPARE(session.title, std::string("Fix tests"));
        QCOMPARE(session.state, std::string("waiting"));
        QVERIFY(session.listening);
        QCOMPARE(seconds(session.lastActive), 1700000000.0);
        QCOMPARE(session.lastText, std::string("Done?"));
        QCOMPARE(session.queued, std::int64_t(2));
        QCOMPARE(ClaudeSession(parse("{}")), ClaudeSession());
        // Flags are the literals only.
        QVERIFY(!ClaudeSession(parse("{\"listening\":\"true\"}")).listening);
        QVERIFY(!ClaudeSession(parse("{\"listening\":1}")).listening);
        QVERIFY(ClaudeSession(parse("{\"id\":\"a\",\"last_ts\":1}")) !=
                ClaudeSession(parse("{\"id\":\"a\",\"last_ts\":2}")));
    }

    void devicesKeepTheFractionOfAMillisecond()
    {
        const PairedDevice half(parse("{\"id\":\"p\",\"name\":\"W\",\"created\":1700000000000.5}"));
        const PairedDevice whole(parse("{\"id\":\"p\",\"name\":\"W\",\"created\":1700000000000}"));
        QCOMPARE(seconds(half.paired), 1700000000.0005);
        QVERIFY(half != whole);
        QCOMPARE(whole, PairedDevice(parse("{\"name\":\"W\",\"id\":\"p\",\"created\":1.7e12}")));
        QCOMPARE(seconds(PairedDevice(parse("{\"created\":\"1700000000000\"}")).paired), 0.0);
    }

    void listReadersKeepOrderOrGiveNothing()
    {
        const auto devices = DaemonClient::devicesFrom(
            parse("{\"ok\":true,\"devices\":[{\"id\":\"b\"},{\"id\":\"a\"},{}]}"));
        QCOMPARE(devices.size(), std::size_t(3));
        QCOMPARE(devices[0].id + devices[1].id, std::string("ba"));
        for (const char* bad : {"{\"ok\":true}", "{\"devices\":{}}", "{\"devices\":[{},1]}",
                                "{\"devices\":null}", "{\"sessions\":[{}]}"})
            QVERIFY2(DaemonClient::devicesFrom(parse(bad)).empty(), bad);
        QVERIFY(DaemonClient::devicesFrom(std::nullopt).empty());
        QCOMPARE(DaemonClient::sessionsFrom(parse("{\"sessions\":[{\"id\":\"x\"},{\"id\":\"x\"}]}"))
                     .size(),
                 std::size_t(2)); // duplicates are the lists' business
        QVERIFY(DaemonClient::sessionsFrom(parse("{\"sessions\":[[]]}")).empty());
        QVERIFY(DaemonClient::sessionsFrom(parse("{\"devices\":[{}]}")).empty());
    }

    void pairingOfferAndConnectedCount()
    {
        const std::pair<const char*, std::int64_t> offered[] = {{"120", 120},
                                                                {"60.0", 60},
                                                                {"0", 0},
                                                                {"\"120\"", 300}, // default
                                                                {"null", 300}};
        for (const auto& [lifetime, expiresIn] : offered) {
            const auto offer = DaemonClient::offerFrom(
                parse("{\"qr\":\"hk://p\",\"expires_in\":" + std::string(lifetime) + "}"));
            QVERIFY2(offer && offer->payload == "hk://p" && offer->expiresIn == expiresIn,
                     lifetime);
        }
        QCOMPARE(DaemonClient::offerFrom(parse("{\"qr\":\"hk://p\"}"))->expiresIn, 300);
        for (const char* refused : {"{\"qr\":\"\",\"expires_in\":120}", "{\"qr\":42}", "{}"})
            QVERIFY2(!DaemonClient::offerFrom(parse(refused)), refused);
        QVERIFY(!DaemonClient::offerFrom(std::nullopt));

        QCOMPARE(DaemonClient::connectedFrom(parse("{\"connected\":2}")), std::int64_t(2));
        QCOMPARE(DaemonClient::connectedFrom(parse("{\"connected\":\"2\"}")), std::int64_t(0));
        QCOMPARE(DaemonClient::connectedFrom(std::nullopt), std::int64_t(0));
    }
};

QTEST_GUILESS_MAIN(RecordsTest)
#include "tst_records.moc"
