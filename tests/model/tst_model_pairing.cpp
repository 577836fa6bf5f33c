// Pairing: opening an offer, watching for the new phone (and the races around it), cancelling,
// copying, and the QR image read back by an independent decoder.

#include "ModelKit.h"
#include "QrCode.h"
#include "ZbarRead.h"

#include <QStandardPaths>

using namespace harkline;
using namespace harkline::test;
using namespace std::chrono_literals;

namespace {

// What zbarimg reads from the image drawn with the 10-pixel white border the pairing view adds.
QByteArray decode(const QImage& code)
{
    QImage framed(code.width() + 20, code.height() + 20, QImage::Format_Grayscale8);
    framed.fill(0xff);
    for (int y = 0; y < code.height(); ++y)
        std::memcpy(framed.scanLine(y + 10) + 10, code.constScanLine(y), code.width());
    return zbarRead(framed);
}

// A daemon with one phone paired before any offer, and a model on a hidden panel.
struct Pairs
{
    ScriptedDaemon daemon;
    FakeDesktop desktop;
    AppModel model{desktop.environment()};

    Pairs()
    {
        daemon.set([](ScriptedDaemon& d) { d.devices = {phone("a", "Old phone")}; });
    }
    void open()
    {
        model.startPairing();
        QVERIFY(settle(model));
        QVERIFY(model.pairing());
    }
    void tick()
    {
        model.tick();
        QVERIFY(settle(model));
    }
};

} // namespace

class ModelPairingTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> home;

private slots:
    void initTestCase() { home = std::make_unique<TestHome>(); }

    void startPairingOpensAnOffer()
    {
        Pairs p;
        p.daemon.set([](ScriptedDaemon& d) { d.devices.push_back(phone("b", "Tablet")); });
        QVERIFY(settle(p.model));
        p.model.copyPairingCode(); // no offer: nothing copied, nothing said
        QVERIFY(p.desktop.clipboard->texts.isEmpty() && !p.model.notice());

        p.open();
        const Pairing& offer = *p.model.pairing();
        QCOMPARE(offer.payload, "hk1:pairing-payload");
        QCOMPARE(offer.expires, p.desktop.now + 120s);
        QCOMPARE(offer.known, (std::set<std::string>{"a", "b"}));
        QVERIFY(!offer.pairedWith);
        QCOMPARE(offer.image, qrCodeImage("hk1:pairing-payload"));
        QVERIFY(p.model.devices().empty()); // nothing published before a phone pairs

        p.model.copyPairingCode();
        QCOMPARE(p.desktop.clipboard->texts, QStringList{"hk1:pairing-payload"});
        QCOMPARE(p.model.notice(), text("Pairing code copied."));
    }

    // A refused offer says so; an offer already on screen survives.
    void refusedOffers()
    {
        for (const Json& refusal :
             {Json{{"ok", false}, {"qr", "x"}}, Json{{"ok", true}, {"qr", ""}},
              Json{{"ok", true}, {"qr", 7}}, Json() /* no daemon */}) {
            FakeDesktop desktop;
            AppModel model(desktop.environment());
            auto daemon = std::make_unique<ScriptedDaemon>();
            model.startPairing();
            QVERIFY(settle(model));
            const auto before = model.pairing();
            QVERIFY(before);
            if (refusal.is_null())
                daemon.reset();
            else
                daemon->set([&](ScriptedDaemon& d) { d.pair = refusal; });
            model.startPairing();
            QVERIFY(settle(model));
            QCOMPARE(model.notice(), text("Could not get a pairing code from the service."));
            QCOMPARE(model.pairing(), before);
        }
    }

    void firstUnknownPhoneIsTheNewOne()
    {
        Pairs p;
        p.open();
        QSignalSpy devicesSpy(&p.model, &AppModel::devicesChanged);
        QSignalSpy pairingSpy(&p.model, &AppModel::pairingChanged);
        p.tick(); // only known phones: nothing published
        QCOMPARE(devicesSpy.count() + pairingSpy.count(), 0);

        p.daemon.set([](ScriptedDaemon& d) {
            d.devices = {phone("c", "Second new"), phone("a", "Old phone"), phone("d", "x")};
        });
        p.tick();
        QCOMPARE(p.model.pairing()->pairedWith, std::optional<std::string>("Second new"));
        QCOMPARE(p.model.devices().size(), 3u);

        const int polls = p.daemon.count("devices"); // paired: polling stops
        p.tick();
        QCOMPARE(p.daemon.count("devices"), polls);
    }

    void expiredOffersAreNotPolled()
    {
        const std::pair<int, int> rows[] = {{0, 0}, {-5, 0}, {30, 30}}; // lifetime, clock advance
        for (const auto& [expiresIn, advance] : rows) {
            Pairs p;
            p.daemon.set([&](ScriptedDaemon& d) { d.pair["expires_in"] = expiresIn; });
            p.open();
            p.desktop.now += std::chrono::seconds(advance);
            p.daemon.set([](ScriptedDaemon& d) { d.devices.push_back(phone("late", "Late")); });
            const int polls = p.daemon.count("devices");
            p.tick();
            QCOMPARE(p.daemon.count("devices"), polls);
            QVERIFY(p.model.pairing() && !p.model.pairing()->pairedWith);
        }
    }

    void pollForAReplacedOfferIsDropped()
    {
        Pairs p;
        p.open();
        QSignalSpy devicesSpy(&p.model, &AppModel::devicesChanged);
        p.daemon.set([](ScriptedDaemon& d) {
            d.slowDevices = true;
            d.devices.push_back(phone("b", "New"));
        });
        p.model.tick(); // this poll will see "b" as new for the first offer
        QVERIFY(QTest::qWaitFor([&] { return p.daemon.count("devices") == 2; }));

        p.daemon.set([](ScriptedDaemon& d) {
            d.slowDevices = false;
            d.pair["qr"] = "hk1:second";
        });
        p.model.startPairing(); // "New Code" while the poll is out
        QVERIFY(QTest::qWaitFor([&] { return p.model.pairing()->payload == "hk1:second"; }));
        QVERIFY(settle(p.model));
        QVERIFY(!p.model.pairing()->pairedWith);
        QCOMPARE(devicesSpy.count(), 0);
    }

    void pollFinishingAfterCancelIsDropped()
    {
        Pairs p;
        p.open();
        p.daemon.set([](ScriptedDaemon& d) {
            d.slowDevices = true;
            d.devices.push_back(phone("b", "New"));
        });
        p.model.tick();
        QSignalSpy refreshes(&p.model, &AppModel::refreshStarted);
        QSignalSpy devicesSpy(&p.model, &AppModel::devicesChanged);
        p.model.stopPairing();
        QVERIFY(!p.model.pairing());
        QCOMPARE(refreshes.count(), 1);
        QCOMPARE(refreshes.first().first().toBool(), false); // hidden: a summary
        QVERIFY(settle(p.model));
        QVERIFY(!p.model.pairing());
        QCOMPARE(devicesSpy.count(), 0);
    }

    void qrCodeReadsBackByteForByte()
    {
        QVERIFY2(!QStandardPaths::findExecutable("zbarimg").isEmpty(), "zbar-tools is missing");
        for (const QByteArray& payload :
             {QByteArray("harkline://pair?h=192.168.1.20&p=8080&k=Zm9vYmFy"),
              QByteArray("Café ☕ 東京 — Grüße 🙂"), QByteArray(1200, 'x').append("é")}) {
            const QImage code = qrCodeImage(payload.toStdString());
            QVERIFY(!code.isNull());
            QCOMPARE(code.width(), code.height());
            QCOMPARE(code.width() % kQrModulePixels, 0);
            QCOMPARE((code.width() / kQrModulePixels - 17) % 4, 0); // 21, 25, ... 177 modules
            QCOMPARE(decode(code), payload);
        }
        // Level M in 8-bit mode holds at most 2,331 bytes.
        QVERIFY(!qrCodeImage(std::string(2331, 'x')).isNull());
        QVERIFY(qrCodeImage(std::string(2332, 'x')).isNull());
        QVERIFY(qrCodeImage("").isNull());
    }
};

QTEST_MAIN(ModelPairingTest)
#include "tst_model_pairing.moc"
