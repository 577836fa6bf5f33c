// The pairing view: countdown, expiry (said once, the focus kept on the button row), and what
// Return and the buttons do.

#include "Access.h"
#include "ModelKit.h"
#include "PairingView.h"

#include <QApplication>
#include <QPushButton>

using namespace harkline;
using namespace harkline::test;
using namespace harkline::ui;
using namespace std::chrono_literals;

namespace {

// A view on an offer with any picture (or none), its clock moved by hand.
struct Shown
{
    UiFixture f;
    DaemonTime now = DaemonTime(std::chrono::seconds(1'800'000'000));
    PairingView view;

    explicit Shown(std::chrono::duration<double> left, bool image = true)
        : view(f.model.get(), offer(left, image))
    {
        view.setClock([this] { return now; });
    }
    Pairing offer(std::chrono::duration<double> left, bool image = true) const
    {
        Pairing p;
        p.payload = "hk1:payload";
        p.image = image ? QImage(29, 29, QImage::Format_Grayscale8) : QImage();
        p.image.fill(0);
        p.expires = now + left;
        return p;
    }
};

} // namespace

class PairingTest : public QObject
{
    Q_OBJECT

private slots:
    void countdown()
    {
        for (const auto& [left, line] :
             {std::pair{299.9, "4:59"}, std::pair{1.0, "0:01"}, std::pair{4500.0, "75:00"}}) {
            Shown s{std::chrono::duration<double>(left)};
            QVERIFY(s.view.showsCode() && !s.view.showsExpired());
            QCOMPARE(s.view.countdownLine(),
                     QStringLiteral("Pair PC → scan. Expires in %1.").arg(line));
        }
    }

    void expiresWhileShown()
    {
        QWidget panel;
        const access::Announcer* said = new access::Announcer(&panel);
        Shown s{2.5s};
        s.view.setParent(&panel);
        panel.show();
        QApplication::setActiveWindow(&panel);
        QVERIFY(QTest::qWaitForWindowActive(&panel));
        s.view.copyButton()->setFocus();
        s.now += 2s; // half a second left: below one whole second
        QVERIFY(QTest::qWaitFor([&] { return s.view.showsExpired(); }, 2500));
        QVERIFY(!s.view.showsCode());
        QCOMPARE(said->text(), QString("This code has expired."));
        // The button row is chosen when the view is rebuilt, not by the countdown.
        QVERIFY(s.view.copyButton()->isVisible());
        s.view.setPairing(s.offer(0.5s));
        QVERIFY(s.view.copyButton()->isVisible());
        s.now += 1s;
        s.view.setPairing(s.offer(-0.5s));
        QVERIFY(!s.view.copyButton()->isVisible());
        QVERIFY(s.view.newCodeButton()->hasFocus());
        QCOMPARE(said->count(), 1);

        Shown noImage{100s, false};
        QVERIFY(noImage.view.showsExpired());
        QVERIFY(noImage.view.copyButton()->isVisibleTo(&noImage.view));
    }

    void returnPressesTheDefaultOnlyAndButtonsCallTheModel()
    {
        Shown s{100s};
        s.view.show();
        s.view.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&s.view));

        // With "Copy Code" shown nothing is bound to Return: no copy, no new code.
        s.f.model->startPairing(); // an offer in the model, so that a copy would show
        QVERIFY(settle(*s.f.model));
        QTest::keyClick(&s.view, Qt::Key_Return);
        QVERIFY(settle(*s.f.model));
        QCOMPARE(s.f.daemon.count("pair"), 1);
        QVERIFY(s.f.desktop.clipboard->texts.isEmpty());
        s.view.copyButton()->click();
        QCOMPARE(s.f.desktop.clipboard->texts, QStringList{"hk1:pairing-payload"});
        s.view.cancelButton()->click();
        QVERIFY(!s.f.model->pairing());

        // Expired: Return asks for a new code.
        s.view.setPairing(s.offer(-1s));
        QTest::keyClick(&s.view, Qt::Key_Return);
        QVERIFY(settle(*s.f.model));
        QVERIFY(s.f.daemon.count("pair") == 2 && s.f.model->pairing());

        // Paired: Return is "Done", which closes the offer.
        Pairing paired = s.offer(50s);
        paired.pairedWith = "<b>Bob</b>'s\u009c phone\u202e"; // markup, a control, an override
        s.view.setPairing(paired);
        QVERIFY(s.view.showsPaired());
        QCOMPARE(s.view.pairedLine(), QString("Paired with \u2068<b>Bob</b>'s\uFFFD phone\u2069"));
        QTest::keyClick(&s.view, Qt::Key_Return);
        QVERIFY(!s.f.model->pairing().has_value());
        QVERIFY(settle(*s.f.model));
    }
};

QTEST_MAIN(PairingTest)
#include "tst_ui_pairing.moc"
