// The panel as a whole and its header and not-running views: which parts show in which state,
// the actions' enabled rules, the Return binding, what is dropped when a view leaves, a long
// list reached by wheel and keys, and daemon text that tries to rewrite what is shown.

#include "ActionsMenu.h"
#include "HeaderView.h"
#include "MenuView.h"
#include "ModelKit.h"
#include "NotRunningView.h"
#include "PairingView.h"
#include "PhoneRow.h"
#include "PhonesView.h"
#include "SessionsView.h"

#include <QAccessible>
#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QWheelEvent>

using namespace harkline;
using namespace harkline::test;
using namespace harkline::ui;

namespace {

// A shown panel on a model that has loaded the daemon's current replies.
struct Panel
{
    UiFixture f;
    MenuView view{f.model.get()};
    Panel()
    {
        view.show();
        settle(*f.model);
    }
    template <class F> void reload(F change)
    {
        f.daemon.set(change);
        QVERIFY(f.refresh());
        // Laid out, and as tall as it asks, as the panel's window makes it.
        for (int i = 0; i < 10; ++i)
            QCoreApplication::processEvents();
        view.resize(MenuView::kWidth, view.heightForWidth(MenuView::kWidth));
        QCoreApplication::processEvents();
    }
    QStringList parts() const { return view.shownParts(); }
};

const auto down = [](ScriptedDaemon& d) { d.running = false; };

} // namespace

class MenuTest : public QObject
{
    Q_OBJECT

    static void header(bool running, const char* name, const Json& hosts, const char* title,
                       const char* subtitle, int connected = 0, int devices = 0)
    {
        Panel p;
        p.reload([&](ScriptedDaemon& d) {
            d.running = running;
            d.status.update(
                {{"name", name}, {"hosts", hosts}, {"connected", connected}, {"devices", devices}});
        });
        QCOMPARE(p.view.header()->title(), QString(title));
        QCOMPARE(p.view.header()->subtitle(), QString(subtitle));
        QCOMPARE(p.view.header()->dotIsGreen(), running);
    }

private slots:
    void partsFollowTheModel()
    {
        Panel p;
        p.reload(down);
        QCOMPARE(p.parts(), QStringList({"header", "divider", "notRunning"}));

        // A failed start leaves a notice under the not-running view.
        p.f.service->succeeds = false;
        p.f.model->startService(false);
        QVERIFY(QTest::qWaitFor([&] { return p.f.model->notice().has_value(); }, 8000));
        QCOMPARE(p.parts(), QStringList({"header", "divider", "notRunning", "notice"}));
        QCOMPARE(p.view.noticeLine()->text(), *p.f.model->notice());

        p.reload([](ScriptedDaemon& d) { d.running = true, d.status["pending"] = 1; });
        QCOMPARE(p.parts(), QStringList({"header", "divider", "waiting", "phones", "sessionsTitle",
                                         "sessions", "notice"}));
        QCOMPARE(p.view.waitingLineText(), QString("1 prompt waiting for an answer"));
        p.reload([](ScriptedDaemon& d) { d.status["pending"] = 2; });
        QCOMPARE(p.view.waitingLineText(), QString("2 prompts waiting for an answer"));

        // An offer replaces phones and sessions; the waiting line stays above it.
        p.f.model->startPairing();
        QVERIFY(settle(*p.f.model));
        QCOMPARE(p.parts(), QStringList({"header", "divider", "waiting", "pairing"}));
        QVERIFY(!p.view.phonesView() && !p.view.sessionsView());

        // Without a status the offer is not shown at all (asking for it cleared the notice).
        p.reload(down);
        QVERIFY(p.f.model->pairing().has_value());
        QCOMPARE(p.parts(), QStringList({"header", "divider", "notRunning"}));

        p.reload([](ScriptedDaemon& d) { d.running = true, d.status["pending"] = 0; });
        QVERIFY(!p.parts().contains("waiting"));
    }

    void longListScrollsAndItsLastRowIsReachable()
    {
        Panel p;
        p.reload([](ScriptedDaemon& d) {
            d.sessions = Json::array({session("a", "working"), session("b", "waiting")});
        });
        SessionsView* list = p.view.sessionsView();
        const int width = MenuView::kWidth - 2 * MenuView::kPadding;
        QCOMPARE(list->height(), list->contentHeight(width));

        p.reload([](ScriptedDaemon& d) {
            for (int i = 0; i < 48; ++i)
                d.sessions.push_back(session(std::to_string(i).c_str(), "working"));
        });
        QCOMPARE(list->height(), MenuView::kMaxSessionsHeight);
        const auto shown = [&](int row) {
            return list->viewport()->rect().contains(list->rowRect(row));
        };
        QVERIFY(shown(0) && !shown(49));

        // The wheel over the list scrolls it to its last row.
        for (int i = 0; i < 100 && !shown(49); ++i) {
            const QPointF at(20, 20);
            QWheelEvent wheel(at, list->viewport()->mapToGlobal(at), {}, QPoint(0, -120),
                              Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
            QApplication::sendEvent(list->viewport(), &wheel);
        }
        QVERIFY(shown(49));

        // One Tab stop after "Pair a Phone…"; End and Home bring the rows they reach into view.
        QApplication::setActiveWindow(&p.view);
        QVERIFY(QTest::qWaitForWindowActive(&p.view));
        QPushButton* pair = p.view.phonesView()->pairButton();
        pair->setFocus();
        QTest::keyClick(pair, Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), list);
        QTest::keyClick(list, Qt::Key_Home);
        QVERIFY(shown(0) && !shown(49));
        QTest::keyClick(list, Qt::Key_End);
        QVERIFY(shown(49) && list->currentRow() == 49);
        QTest::keyClick(list, Qt::Key_PageUp);
        QVERIFY(list->currentRow() < 49 && shown(list->currentRow()));
        QTest::keyClick(list, Qt::Key_Tab);
        QVERIFY(QApplication::focusWidget() != list &&
                !list->isAncestorOf(QApplication::focusWidget()));

        // A long notice wraps over several lines and never widens the panel.
        p.f.desktop.loginItem->failure = QString(400, QChar('x')).replace(50, 1, " ");
        p.view.header()->actionsMenu()->openAtLoginAction()->trigger();
        QVERIFY(p.view.noticeLine()->isVisible());
        QCOMPARE(p.view.width(), MenuView::kWidth);
        QVERIFY(p.view.noticeLine()->heightForWidth(MenuView::kWidth - 2 * MenuView::kPadding) >
                2 * p.view.noticeLine()->fontMetrics().height());
    }

    void daemonTextCannotRewriteThePanel()
    {
        Panel p;
        p.reload([](ScriptedDaemon& d) {
            d.status["name"] = "desk\u009cHijacked";
            d.status["hosts"] = Json::array({"\u202eevil.local"});
            d.status["connected"] = 1;
            d.status["devices"] = 2;
            d.devices = Json::array({phone("p1", "Pixel\u009cX\u202e")});
            Json s = session("s", "working", "x\u009cApproved: deploy to prod", "\u202eproj");
            s["last_text"] = "bell\u0007\nnext";
            d.sessions = Json::array({s});
        });
        QCOMPARE(p.view.header()->title(), QString("desk\uFFFDHijacked"));
        QCOMPARE(p.view.header()->subtitle(),
                 QString("\u2068evil.local\u2069:7420 · 1 of 2 phones connected"));
        QCOMPARE(p.view.phonesView()->rowAt(0)->nameText(), QString("Pixel\uFFFDX"));

        // The session as a screen reader reads it, and as the row shows it unfolded.
        SessionsView* list = p.view.sessionsView();
        QAccessibleInterface* row = QAccessible::queryAccessibleInterface(list)->child(0);
        QCOMPARE(row->text(QAccessible::Name), QString("x\uFFFDApproved: deploy to prod"));
        QVERIFY(row->text(QAccessible::Description).startsWith("Working, \u2068proj\u2069 · "));
        list->toggle("s");
        QCOMPARE(list->shownLastText(0), QString("bell\uFFFD\nnext"));
    }

    void eachOpeningAsksForADetailedRefresh()
    {
        UiFixture f;
        MenuView view(f.model.get());
        QSignalSpy refreshes(f.model.get(), &AppModel::refreshStarted);
        view.show();
        view.hide();
        view.show();
        QCOMPARE(refreshes.count(), 2);
        QVERIFY(refreshes.at(0).at(0).toBool() && refreshes.at(1).at(0).toBool());
        QVERIFY(settle(*f.model));
        QCOMPARE(f.daemon.count("sessions"), 2);
    }

    void localStateIsDroppedWhenViewsLeave()
    {
        Panel p;
        p.reload([](ScriptedDaemon& d) {
            d.sessions = Json::array({session("s1", "working"), session("s2", "ended")});
            d.devices = Json::array({phone("p1", "Pixel"), phone("p2", "iPhone")});
        });
        p.view.sessionsView()->toggle("s1");
        p.view.phonesView()->row("p2")->trashButton()->click();

        // The same views across a reload keep their state.
        p.reload([](ScriptedDaemon&) {});
        QCOMPARE(p.view.sessionsView()->expanded(), std::optional<std::string>("s1"));
        QVERIFY(p.view.phonesView()->row("p2")->confirming());

        p.f.model->startPairing();
        QVERIFY(settle(*p.f.model) && p.view.pairingView());
        p.f.model->stopPairing();
        QVERIFY(settle(*p.f.model));
        QCOMPARE(p.view.sessionsView()->expanded(), std::nullopt);
        QCOMPARE(p.view.phonesView()->removing(), std::nullopt);
        QVERIFY(!p.view.phonesView()->row("p2")->confirming());
    }

    void headerShowsTheStatus()
    {
        header(false, "x", {}, "harkline", "Service not running");
        header(true, "desk", Json::array(), "desk", "port 7420 · 0 of 0 phones connected");
        header(true, "desk", {"a.local", "b.local"}, "desk",
               "\u2068a.local\u2069:7420 · 3 of 0 phones connected", 3);
        header(true, "<b>bold</b>", {"%2host"}, "<b>bold</b>",
               "\u2068%2host\u2069:7420 · 1 of 2 phones connected", 1, 2); // markup, "%2" literal
    }

    void headerActions()
    {
        Panel p;
        ActionsMenu* menu = p.view.header()->actionsMenu();
        // Withdrawn status: only the test notification is out of reach.
        p.reload(down);
        QVERIFY(!menu->sendTestAction()->isEnabled());
        for (QAction* a : {menu->restartAction(), menu->openLogAction(), menu->openAtLoginAction(),
                           menu->quitAction()})
            QVERIFY(a->isEnabled());

        // The switch starts from the login item each time the panel opens, and then follows only
        // the user, also when the change fails.
        p.f.desktop.loginItem->on = true;
        p.view.hide();
        p.view.show();
        QVERIFY(menu->openAtLoginAction()->isChecked());
        p.f.desktop.loginItem->failure = QString("the folder is read-only");
        menu->openAtLoginAction()->trigger();
        QVERIFY(!menu->openAtLoginAction()->isChecked());
        QVERIFY(p.f.desktop.loginItem->on && p.view.noticeLine()->isVisible());

        // Restart clears that notice before its own outcome is known.
        menu->restartAction()->trigger();
        QVERIFY(!p.view.noticeLine()->isVisible());
        QVERIFY(settle(*p.f.model));
        menu->openLogAction()->trigger();
        QCOMPARE(p.f.desktop.fileOpener->opened.size(), 1);
    }

    void notRunningView()
    {
        Panel p;
        p.reload(down);
        NotRunningView* nr = p.view.notRunningView();
        QVERIFY(nr);
        QCOMPARE(nr->message()->text(),
                 QString("The harkline service is not running, so phones get no notifications."));
        p.f.service->succeeds = false;
        p.f.model->startService(false);
        QVERIFY(QTest::qWaitFor([&] { return p.f.model->notice().has_value(); }, 8000));
        QVERIFY(settle(*p.f.model));
        const int runs = p.f.service->runs;

        // Return presses the button that has the focus; anywhere else it is "Start Service",
        // whose notice goes at once, before the start's own outcome (which may bring a new one).
        QApplication::setActiveWindow(&p.view);
        QVERIFY(QTest::qWaitForWindowActive(&p.view));
        nr->openLogButton()->setFocus();
        QTRY_VERIFY(nr->openLogButton()->hasFocus());
        QTest::keyClick(nr->openLogButton(), Qt::Key_Return);
        QCOMPARE(p.f.desktop.fileOpener->opened.size(), 1);
        QCOMPARE(p.f.service->runs, runs);
        QStringList notices;
        connect(p.f.model.get(), &AppModel::noticeChanged, this,
                [&] { notices << p.f.model->notice().value_or("(none)"); });
        QTest::keyClick(&p.view, Qt::Key_Return);
        QVERIFY(!notices.isEmpty());
        QCOMPARE(notices.first(), QString("(none)"));
        QVERIFY(QTest::qWaitFor([&] { return p.f.service->runs == runs + 1; }));
        QCOMPARE(p.f.desktop.fileOpener->opened.size(), 1);
    }
};

QTEST_MAIN(MenuTest)
#include "tst_ui_menu.moc"
