// Pairing: opening an offer, watching for the new phone (and the races around it), cancelling,
// copying, and the QR image read back by an independent decoder.

#include "DaemonClient.h"
#include "ModelTestKit.h"
#include "QrCode.h"
#include "TestHome.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <mutex>

using namespace harkline;
using namespace harkline::test;
using namespace std::chrono_literals;
using Script = FakeDaemon::Script;

namespace {

// A daemon whose phone list and pairing reply the test changes as it goes; a devices request
// can be made slow to hold a poll in flight.
struct PairingDaemon
{
    std::mutex mutex;
    Json phones = Json::array({{{"id", "a"}, {"name", "Old phone"}}});
    Json pairReply = {{"ok", true}, {"qr", "hk1:first"}, {"expires_in", 120}};
    bool slowDevices = false;
    FakeDaemon daemon{DaemonClient::socketPath()};

    PairingDaemon()
    {
        daemon.setHandler([this](const std::string& line) {
            const std::lock_guard lock(mutex);
            const std::string cmd = FakeDaemon::commandOf(line);
            if (cmd == "pair")
                return Script::answer(pairReply);
            if (cmd == "devices") {
                const Json reply{{"ok", true}, {"devices", phones}};
                return slowDevices ? slowAnswer(reply, 500ms) : Script::answer(reply);
            }
            return Script::answer({{"ok", true}});
        });
    }
    void set(const std::function<void()>& change)
    {
        const std::lock_guard lock(mutex);
        change();
    }
};

Json phone(const char* id, const char* name)
{
    return {{"id", id}, {"name", name}};
}

// What zbarimg reads from the image drawn with the 10-pixel white border the pairing view adds.
QByteArray decode(const QImage& code)
{
    QImage framed(code.width() + 20, code.height() + 20, QImage::Format_Grayscale8);
    framed.fill(0xff);
    for (int y = 0; y < code.height(); ++y)
        std::memcpy(framed.scanLine(y + 10) + 10, code.constScanLine(y), code.width());
    QTemporaryDir dir;
    const QString file = dir.filePath("code.png");
    if (!framed.save(file))
        return "(not saved)";
    QProcess zbar;
    zbar.start("zbarimg", {"--nodbus", "--quiet", "--raw", "-Sbinary", file});
    zbar.waitForFinished(20000);
    return zbar.readAllStandardOutput();
}

} // namespace

class ModelPairingTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> home;

    static void open(AppModel& model)
    {
        model.startPairing();
        QVERIFY(settle(model));
        QVERIFY(model.pairing());
    }

private slots:
    void initTestCase() { home = std::make_unique<TestHome>(); }

    void startPairingOpensAnOffer()
    {
        PairingDaemon daemon;
        daemon.set([&] { daemon.phones.push_back(phone("b", "Tablet")); });
        FakeDesktop desktop;
        AppModel model(desktop.environment());
        QVERIFY(settle(model));
        model.copyPairingCode(); // no offer: nothing copied, nothing said
        QVERIFY(desktop.clipboard->texts.isEmpty() && !model.notice());

        open(model);
        const Pairing& offer = *model.pairing();
        QCOMPARE(offer.payload, "hk1:first");
        QCOMPARE(offer.expires, desktop.now + 120s);
        QCOMPARE(offer.known, (std::set<std::string>{"a", "b"}));
        QVERIFY(!offer.pairedWith);
        QCOMPARE(offer.image, qrCodeImage("hk1:first"));
        QVERIFY(model.devices().empty()); // nothing published before a phone pairs
        // The phones are asked for before the code, so a phone cannot slip between the two.
        const auto requests = daemon.daemon.requests();
        QCOMPARE(FakeDaemon::commandOf(requests.at(requests.size() - 2)), "devices");
        QCOMPARE(FakeDaemon::commandOf(requests.back()), "pair");

        model.copyPairingCode();
        QCOMPARE(desktop.clipboard->texts, QStringList{"hk1:first"});
        QCOMPARE(model.notice(), text("Pairing code copied."));
    }

    void refusedOffers_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("ok false") << 0;
        QTest::newRow("empty qr") << 1;
        QTest::newRow("qr not text") << 2;
        QTest::newRow("no daemon") << 3;
    }
    void refusedOffers()
    {
        QFETCH(int, kind);
        FakeDesktop desktop;
        std::optional<Pairing> before;
        std::optional<AppModel> model;
        {
            PairingDaemon daemon;
            model.emplace(desktop.environment());
            open(*model); // an offer already on screen must survive the failure
            before = model->pairing();
            const Json refusals[] = {{{"ok", false}, {"qr", "x"}},
                                     {{"ok", true}, {"qr", ""}},
                                     {{"ok", true}, {"qr", 7}}};
            if (kind < 3) {
                daemon.set([&] { daemon.pairReply = refusals[kind]; });
                model->startPairing();
                QVERIFY(settle(*model));
            }
        }
        if (kind == 3) {
            model->startPairing();
            QVERIFY(settle(*model));
        }
        QCOMPARE(model->notice(), text("Could not get a pairing code from the service."));
        QCOMPARE(model->pairing(), before);
    }

    void firstUnknownPhoneIsTheNewOne()
    {
        PairingDaemon daemon;
        FakeDesktop desktop;
        AppModel model(desktop.environment());
        open(model);
        QSignalSpy devicesSpy(&model, &AppModel::devicesChanged);
        QSignalSpy pairingSpy(&model, &AppModel::pairingChanged);

        model.tick(); // only known phones: nothing published
        QVERIFY(settle(model));
        QCOMPARE(devicesSpy.count() + pairingSpy.count(), 0);

        daemon.set([&] {
            daemon.phones = {phone("c", "Second new"), phone("a", "Old phone"), phone("d", "x")};
        });
        model.tick();
        QVERIFY(settle(model));
        QCOMPARE(model.pairing()->pairedWith, std::optional<std::string>("Second new"));
        QCOMPARE(model.devices().size(), 3u);

        // Paired: polling stops.
        const int polls = countCommand(daemon.daemon, "devices");
        model.tick();
        QVERIFY(settle(model));
        QCOMPARE(countCommand(daemon.daemon, "devices"), polls);
    }

    void noKnownPhonesMeansTheFirstOneSeen()
    {
        PairingDaemon daemon;
        daemon.set([&] { daemon.phones = Json::array(); });
        FakeDesktop desktop;
        AppModel model(desktop.environment());
        open(model);
        QVERIFY(model.pairing()->known.empty());
        daemon.set([&] { daemon.phones = {phone("a", "Old phone"), phone("b", "New")}; });
        model.tick();
        QVERIFY(settle(model));
        QCOMPARE(model.pairing()->pairedWith, std::optional<std::string>("Old phone"));
    }

    void expiredOffersAreNotPolled_data()
    {
        QTest::addColumn<int>("expiresIn");
        QTest::addColumn<int>("clockAdvance");
        QTest::newRow("expires_in 0") << 0 << 0;
        QTest::newRow("expires_in negative") << -5 << 0;
        QTest::newRow("lapsed") << 30 << 30;
    }
    void expiredOffersAreNotPolled()
    {
        QFETCH(int, expiresIn);
        QFETCH(int, clockAdvance);
        PairingDaemon daemon;
        daemon.set([&] { daemon.pairReply["expires_in"] = expiresIn; });
        FakeDesktop desktop;
        AppModel model(desktop.environment());
        open(model);
        desktop.now += std::chrono::seconds(clockAdvance);
        daemon.set([&] { daemon.phones.push_back(phone("late", "Late")); });
        const int polls = countCommand(daemon.daemon, "devices");
        model.tick();
        QVERIFY(settle(model));
        QCOMPARE(countCommand(daemon.daemon, "devices"), polls);
        QVERIFY(model.pairing() && !model.pairing()->pairedWith);
    }

    void missingLifetimeIsFiveMinutes()
    {
        PairingDaemon daemon;
        daemon.set([&] { daemon.pairReply.erase("expires_in"); });
        FakeDesktop desktop;
        AppModel model(desktop.environment());
        open(model);
        QCOMPARE(model.pairing()->expires, desktop.now + 300s);
    }

    void pollForAReplacedOfferIsDropped()
    {
        PairingDaemon daemon;
        FakeDesktop desktop;
        AppModel model(desktop.environment());
        open(model);
        QSignalSpy devicesSpy(&model, &AppModel::devicesChanged);
        daemon.set([&] {
            daemon.slowDevices = true;
            daemon.phones.push_back(phone("b", "New"));
        });
        model.tick(); // this poll will see "b" as new for the first offer
        QVERIFY(QTest::qWaitFor([&] { return countCommand(daemon.daemon, "devices") == 2; }));

        daemon.set([&] {
            daemon.slowDevices = false;
            daemon.pairReply["qr"] = "hk1:second";
        });
        model.startPairing(); // "New Code" while the poll is out
        QVERIFY(QTest::qWaitFor([&] { return model.pairing()->payload == "hk1:second"; }));
        QVERIFY(settle(model));
        QVERIFY(!model.pairing()->pairedWith);
        QCOMPARE(devicesSpy.count(), 0);
    }

    void pollFinishingAfterCancelIsDropped()
    {
        PairingDaemon daemon;
        FakeDesktop desktop;
        AppModel model(desktop.environment());
        open(model);
        daemon.set([&] {
            daemon.slowDevices = true;
            daemon.phones.push_back(phone("b", "New"));
        });
        model.tick();
        QSignalSpy refreshes(&model, &AppModel::refreshStarted);
        QSignalSpy devicesSpy(&model, &AppModel::devicesChanged);
        model.stopPairing();
        QVERIFY(!model.pairing());
        QCOMPARE(refreshes.count(), 1);
        QCOMPARE(refreshes.first().first().toBool(), false); // hidden: a summary
        QVERIFY(settle(model));
        QVERIFY(!model.pairing());
        QCOMPARE(devicesSpy.count(), 0);
    }

    void qrCodeReadsBackByteForByte_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::newRow("ascii") << QByteArray("harkline://pair?h=192.168.1.20&p=8080&k=Zm9vYmFy");
        QTest::newRow("non-ascii") << QByteArray("Café ☕ 東京 — Grüße 🙂");
        QTest::newRow("long") << QByteArray(1200, 'x').append("é");
    }
    void qrCodeReadsBackByteForByte()
    {
        QVERIFY2(!QStandardPaths::findExecutable("zbarimg").isEmpty(), "zbar-tools is missing");
        QFETCH(QByteArray, payload);
        const QImage code = qrCodeImage(payload.toStdString());
        QVERIFY(!code.isNull());
        QCOMPARE(code.width(), code.height());
        const int modules = code.width() / kQrModulePixels;
        QCOMPARE(code.width() % kQrModulePixels, 0);
        QCOMPARE((modules - 17) % 4, 0); // a real symbol size: 21, 25, ... 177 modules
        QCOMPARE(qrCodeImage(payload.toStdString()), code);
        QByteArray read = decode(code);
        if (read.endsWith('\n'))
            read.chop(1);
        QCOMPARE(read, payload);
    }

    void qrCodeRefusesWhatNoSymbolHolds()
    {
        // Level M in 8-bit mode holds at most 2,331 bytes.
        QVERIFY(!qrCodeImage(std::string(2331, 'x')).isNull());
        QVERIFY(qrCodeImage(std::string(2332, 'x')).isNull());
        QVERIFY(qrCodeImage("").isNull());
    }
};

QTEST_MAIN(ModelPairingTest)
#include "tst_model_pairing.moc"
