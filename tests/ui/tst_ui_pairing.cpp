// The pairing view: code and countdown, expiry, the paired state, and which button Return presses.

#include "PairingView.h"
#include "UiTestKit.h"

#include <QPushButton>

using namespace harkline;
using namespace harkline::test;
using namespace harkline::ui;
using namespace std::chrono_literals;

namespace {

QImage someCode()
{
    QImage image(29, 29, QImage::Format_Grayscale8);
    image.fill(0xff);
    for (int i = 0; i < 29; i += 2)
        image.setPixel(i, i, 0);
    return image;
}

// A clock the test moves by hand.
struct ManualClock
{
    DaemonTime now = DaemonTime(std::chrono::seconds(1'800'000'000));
    PairingView::Clock clock()
    {
        return [this] { return now; };
    }
};

Pairing offer(DaemonTime expires, bool image = true)
{
    Pairing p;
    p.payload = "hk1:payload";
    p.image = image ? someCode() : QImage();
    p.expires = expires;
    return p;
}

} // namespace

class PairingTest : public QObject
{
    Q_OBJECT

private slots:
    void countdown_data()
    {
        QTest::addColumn<double>("remaining");
        QTest::addColumn<QString>("line");
        QTest::newRow("4:59") << 299.9 << "Pair PC → scan. Expires in 4:59.";
        QTest::newRow("1:01") << 61.0 << "Pair PC → scan. Expires in 1:01.";
        QTest::newRow("one second") << 1.0 << "Pair PC → scan. Expires in 0:01.";
        QTest::newRow("an hour") << 3600.0 << "Pair PC → scan. Expires in 60:00.";
        QTest::newRow("beyond an hour") << 4500.0 << "Pair PC → scan. Expires in 75:00.";
    }

    void countdown()
    {
        QFETCH(double, remaining);
        UiFixture f;
        ManualClock clock;
        PairingView view(f.model.get(),
                         offer(clock.now + std::chrono::duration<double>(remaining)));
        view.setClock(clock.clock());
        QVERIFY(view.showsCode());
        QVERIFY(!view.showsExpired());
        QTEST(view.countdownLine(), "line");
        QVERIFY(view.copyButton()->isVisibleTo(&view));
        QVERIFY(!view.newCodeButton()->isVisibleTo(&view));
        QCOMPARE(view.copyButton()->toolTip(), QString("For \"Paste code instead\" in the app"));
    }

    void expiresWhileShown()
    {
        UiFixture f;
        ManualClock clock;
        PairingView view(f.model.get(), offer(clock.now + 2.5s));
        view.setClock(clock.clock());
        view.show();
        saveShot(&view, "pairing-offer");
        QVERIFY(view.showsCode());

        clock.now += 2s; // half a second left: below one whole second
        QVERIFY(QTest::qWaitFor([&] { return view.showsExpired(); }, 2500));
        QVERIFY(!view.showsCode());
        // The button row is chosen when the view is rebuilt, not by the countdown.
        QVERIFY(view.copyButton()->isVisible());
        view.setPairing(offer(clock.now + 0.5s));
        QVERIFY(view.copyButton()->isVisible());
        clock.now += 1s;
        view.setPairing(offer(clock.now - 0.5s));
        QVERIFY(!view.copyButton()->isVisible());
        QVERIFY(view.newCodeButton()->isVisible());
        saveShot(&view, "pairing-expired");
    }

    void noImageShowsExpired()
    {
        UiFixture f;
        ManualClock clock;
        PairingView view(f.model.get(), offer(clock.now + 100s, false));
        view.setClock(clock.clock());
        QVERIFY(view.showsExpired());
        QVERIFY(view.copyButton()->isVisibleTo(&view));
    }

    void returnPressesTheDefaultOnly()
    {
        UiFixture f;
        ManualClock clock;
        PairingView view(f.model.get(), offer(clock.now + 100s));
        view.setClock(clock.clock());
        view.show();
        view.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&view));

        // With "Copy Code" shown nothing is bound to Return.
        QTest::keyClick(&view, Qt::Key_Return);
        QVERIFY(settle(*f.model));
        QCOMPARE(countCommand(f.daemon.daemon, "pair"), 0);
        QVERIFY(f.desktop.clipboard->texts.isEmpty());

        // Expired: Return asks for a new code.
        view.setPairing(offer(clock.now - 1s));
        QTest::keyClick(&view, Qt::Key_Return);
        QVERIFY(settle(*f.model));
        QCOMPARE(countCommand(f.daemon.daemon, "pair"), 1);
        QVERIFY(f.model->pairing().has_value());

        // Paired: Return is "Done", which closes the offer.
        Pairing paired = offer(clock.now + 50s);
        paired.pairedWith = "<b>Bob</b>'s phone";
        view.setPairing(paired);
        QVERIFY(view.showsPaired());
        QCOMPARE(view.pairedLine(), QString("Paired with <b>Bob</b>'s phone"));
        saveShot(&view, "pairing-paired");
        QTest::keyClick(&view, Qt::Key_Return);
        QVERIFY(!f.model->pairing().has_value());
        QVERIFY(settle(*f.model));
    }

    void buttonsCallTheModel()
    {
        UiFixture f;
        f.model->startPairing();
        QVERIFY(settle(*f.model));
        QVERIFY(f.model->pairing());
        PairingView view(f.model.get(), *f.model->pairing());
        view.copyButton()->click();
        QCOMPARE(f.desktop.clipboard->texts, QStringList{"hk1:pairing-payload"});
        QCOMPARE(*f.model->notice(), QString("Pairing code copied."));
        view.cancelButton()->click();
        QVERIFY(!f.model->pairing());
        QVERIFY(settle(*f.model));
    }
};

QTEST_MAIN(PairingTest)
#include "tst_ui_pairing.moc"
