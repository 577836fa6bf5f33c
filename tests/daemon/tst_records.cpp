#include "DaemonClient.h"
#include "Records.h"

#include <QTest>

using namespace harkline;

namespace {
Json parse(const char* text)
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
        const DaemonStatus bare(parse("{\"ok\":true}"));
        QCOMPARE(bare, DaemonStatus());
        QVERIFY(bare.name.empty() && bare.port == 0 && bare.hosts.empty());
        QVERIFY(bare.devices == 0 && bare.connected == 0 && bare.pending == 0);

        const DaemonStatus full(parse("{\"ok\":true,\"name\":\"hark\",\"port\":8080,\"hosts\":"
                                      "[\"10.0.0.2\",\"mac.local\"],\"devices\":2,"
                                      "\"connected\":1,\"pending\":3,\"extra\":[1]}"));
        QCOMPARE(full.name, std::string("hark"));
        QCOMPARE(full.port, std::int64_t(8080));
        QCOMPARE(full.hosts, (std::vector<std::string>{"10.0.0.2", "mac.local"}));
        QCOMPARE(full.devices, std::int64_t(2));
        QCOMPARE(full.connected, std::int64_t(1));
        QCOMPARE(full.pending, std::int64_t(3));

        // Anything but a JSON string for text, or a non-array for a list, is the default.
        const DaemonStatus wrong(parse("{\"name\":5,\"hosts\":\"a\",\"port\":null}"));
        QCOMPARE(wrong, DaemonStatus());
        // A list with one stranger is dropped whole; order is part of equality.
        QVERIFY(DaemonStatus(parse("{\"hosts\":[\"a\",1]}")).hosts.empty());
        QVERIFY(DaemonStatus(parse("{\"hosts\":[\"a\",\"b\"]}")) !=
                DaemonStatus(parse("{\"hosts\":[\"b\",\"a\"]}")));
        // Something that is not an object at all gives all defaults rather than failing.
        QCOMPARE(DaemonStatus(parse("[1,2]")), DaemonStatus());
    }

    void wholeNumbers_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<qint64>("port");
        QTest::newRow("integer") << QByteArray("8080") << qint64(8080);
        QTest::newRow("whole float") << QByteArray("8080.0") << qint64(8080);
        QTest::newRow("exponent") << QByteArray("8.08e3") << qint64(8080);
        QTest::newRow("negative") << QByteArray("-3") << qint64(-3);
        QTest::newRow("fraction") << QByteArray("8080.5") << qint64(0);
        QTest::newRow("digits as text") << QByteArray("\"8080\"") << qint64(0);
        QTest::newRow("boolean") << QByteArray("true") << qint64(0);
        QTest::newRow("largest") << QByteArray("9223372036854775807") << qint64(INT64_MAX);
        QTest::newRow("smallest") << QByteArray("-9223372036854775808") << qint64(INT64_MIN);
        QTest::newRow("2^63") << QByteArray("9223372036854775808") << qint64(0);
        QTest::newRow("2^63 as float") << QByteArray("9.223372036854775808e18") << qint64(0);
        QTest::newRow("huge float") << QByteArray("1e300") << qint64(0);
    }
    void wholeNumbers()
    {
        QFETCH(QByteArray, value);
        QFETCH(qint64, port);
        const Json reply = Json::parse("{\"port\":" + value.toStdString() + "}");
        QCOMPARE(DaemonStatus(reply).port, std::int64_t(port));
    }

    void sessionFieldsAndEquality()
    {
        const ClaudeSession session(parse(
            "{\"id\":\"s1\",\"project\":\"harkline\",\"title\":\"Fix tests\",\"state\":\"waiting\","
            "\"listening\":true,\"last_ts\":1700000000000,\"last_text\":\"Done?\",\"queued\":2}"));
        QCOMPARE(session.id, std::string("s1"));
        QCOMPARE(session.state, std::string("waiting"));
        QVERIFY(session.listening);
        QCOMPARE(seconds(session.lastActive), 1700000000.0); // 2023-11-14 22:13:20 UTC
        QCOMPARE(session.lastText, std::string("Done?"));
        QCOMPARE(session.queued, std::int64_t(2));

        const ClaudeSession empty(parse("{}"));
        QVERIFY(empty.id.empty()); // a record all the same
        QCOMPARE(seconds(empty.lastActive), 0.0);

        // Flags are the literals only.
        QVERIFY(!ClaudeSession(parse("{\"listening\":\"true\"}")).listening);
        QVERIFY(!ClaudeSession(parse("{\"listening\":1}")).listening);

        QVERIFY(ClaudeSession(parse("{\"id\":\"a\",\"last_ts\":1}")) !=
                ClaudeSession(parse("{\"id\":\"a\",\"last_ts\":2}")));
    }

    void devicesKeepTheFractionOfAMillisecond()
    {
        const PairedDevice half(
            parse("{\"id\":\"p\",\"name\":\"Work\",\"created\":1700000000000.5}"));
        const PairedDevice whole(
            parse("{\"id\":\"p\",\"name\":\"Work\",\"created\":1700000000000}"));
        QCOMPARE(seconds(half.paired), 1700000000.0005);
        QVERIFY(half != whole);
        QCOMPARE(whole, PairedDevice(parse("{\"name\":\"Work\",\"id\":\"p\",\"created\":1.7e12}")));
        QCOMPARE(seconds(PairedDevice(parse("{\"created\":\"1700000000000\"}")).paired), 0.0);
    }

    void listReadersKeepOrderOrGiveNothing()
    {
        const auto devices = DaemonClient::devicesFrom(
            parse("{\"ok\":true,\"devices\":[{\"id\":\"b\"},{\"id\":\"a\"},{}]}"));
        QCOMPARE(devices.size(), std::size_t(3));
        QCOMPARE(devices[0].id, std::string("b"));
        QCOMPARE(devices[1].id, std::string("a"));

        for (const char* bad : {"{\"ok\":true}", "{\"devices\":{}}", "{\"devices\":[{},1]}",
                                "{\"devices\":[]}", "{\"devices\":null}", "{\"sessions\":[{}]}"})
            QVERIFY2(DaemonClient::devicesFrom(parse(bad)).empty(), bad);
        QVERIFY(DaemonClient::devicesFrom(std::nullopt).empty());

        const auto sessions =
            DaemonClient::sessionsFrom(parse("{\"sessions\":[{\"id\":\"x\"},{\"id\":\"x\"}]}"));
        QCOMPARE(sessions.size(), std::size_t(2)); // duplicates are the lists' business
        QVERIFY(DaemonClient::sessionsFrom(parse("{\"sessions\":[[]]}")).empty());
        QVERIFY(DaemonClient::sessionsFrom(parse("{\"devices\":[{}]}")).empty());
    }

    void pairingOffer_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<bool>("offered");
        QTest::addColumn<qint64>("expiresIn");
        QTest::newRow("full") << QByteArray("{\"qr\":\"hk://p\",\"expires_in\":120}") << true
                              << qint64(120);
        QTest::newRow("no lifetime") << QByteArray("{\"qr\":\"hk://p\"}") << true << qint64(300);
        QTest::newRow("lifetime as text")
            << QByteArray("{\"qr\":\"hk://p\",\"expires_in\":\"120\"}") << true << qint64(300);
        QTest::newRow("lifetime 60.0")
            << QByteArray("{\"qr\":\"hk://p\",\"expires_in\":60.0}") << true << qint64(60);
        QTest::newRow("lifetime 0")
            << QByteArray("{\"qr\":\"hk://p\",\"expires_in\":0}") << true << qint64(0);
        QTest::newRow("empty qr") << QByteArray("{\"qr\":\"\",\"expires_in\":120}") << false
                                  << qint64(0);
        QTest::newRow("qr not text") << QByteArray("{\"qr\":42}") << false << qint64(0);
        QTest::newRow("no qr") << QByteArray("{\"ok\":true}") << false << qint64(0);
    }
    void pairingOffer()
    {
        QFETCH(QByteArray, reply);
        QFETCH(bool, offered);
        QFETCH(qint64, expiresIn);
        const auto offer = DaemonClient::offerFrom(Json::parse(reply.toStdString()));
        QCOMPARE(offer.has_value(), offered);
        if (offered) {
            QCOMPARE(offer->payload, std::string("hk://p"));
            QCOMPARE(offer->expiresIn, std::int64_t(expiresIn));
        }
        QVERIFY(!DaemonClient::offerFrom(std::nullopt));
    }

    void connectedCount()
    {
        QCOMPARE(DaemonClient::connectedFrom(parse("{\"connected\":2}")), std::int64_t(2));
        QCOMPARE(DaemonClient::connectedFrom(parse("{\"connected\":\"2\"}")), std::int64_t(0));
        QCOMPARE(DaemonClient::connectedFrom(parse("{}")), std::int64_t(0));
        QCOMPARE(DaemonClient::connectedFrom(std::nullopt), std::int64_t(0));
    }
};

QTEST_GUILESS_MAIN(RecordsTest)
#include "tst_records.moc"
