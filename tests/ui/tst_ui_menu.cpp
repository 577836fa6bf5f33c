// The panel as a whole and its header and not-running views: which parts show in which state,
// their exact texts, the actions' enabled rules, the Return binding, and what is dropped when a
// view leaves the panel.

#include "ActionsMenu.h"
#include "HeaderView.h"
#include "MenuView.h"
#include "NotRunningView.h"
#include "PairingView.h"
#include "PhoneRow.h"
#include "PhonesView.h"
#include "SessionRow.h"
#include "SessionsView.h"
#include "UiTestKit.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QToolButton>

using namespace harkline;
using namespace harkline::test;
using namespace harkline::ui;

class MenuTest : public QObject
{
    Q_OBJECT

private:
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
        void reload()
        {
            QVERIFY(f.refresh());
            QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        }
    };

private slots:
    void partsFollowTheModel()
    {
        Panel p;
        p.f.daemon.set([](ScriptedDaemon& d) { d.running = false; });
        p.reload();
        QCOMPARE(p.view.shownParts(), QStringList({"header", "divider", "notRunning"}));

        // A failed start leaves a notice under the not-running view.
        p.f.service->succeeds = false;
        p.f.model->startService(false);
        QVERIFY(QTest::qWaitFor([&] { return p.f.model->notice().has_value(); }, 8000));
        QCOMPARE(p.view.shownParts(), QStringList({"header", "divider", "notRunning", "notice"}));
        QCOMPARE(p.view.noticeLine()->text(), *p.f.model->notice());
        saveShot(&p.view, "not-running-notice");

        p.f.daemon.set([](ScriptedDaemon& d) {
            d.running = true;
            d.status["pending"] = 1;
        });
        p.reload();
        QCOMPARE(p.view.shownParts(), QStringList({"header", "divider", "waiting", "phones",
                                                   "sessionsTitle", "sessions", "notice"}));
        QCOMPARE(p.view.waitingLineText(), QString("1 prompt waiting for an answer"));

        p.f.daemon.set([](ScriptedDaemon& d) { d.status["pending"] = 2; });
        p.reload();
        QCOMPARE(p.view.waitingLineText(), QString("2 prompts waiting for an answer"));

        // An offer replaces phones and sessions; the waiting line stays above it.
        p.f.model->startPairing();
        QVERIFY(settle(*p.f.model));
        QCOMPARE(p.view.shownParts(), QStringList({"header", "divider", "waiting", "pairing"}));
        QVERIFY(!p.view.phonesView() && !p.view.sessionsView());

        // Without a status the offer is not shown at all (asking for it cleared the notice).
        p.f.daemon.set([](ScriptedDaemon& d) { d.running = false; });
        p.reload();
        QVERIFY(p.f.model->pairing().has_value());
        QCOMPARE(p.view.shownParts(), QStringList({"header", "divider", "notRunning"}));

        p.f.daemon.set([](ScriptedDaemon& d) {
            d.running = true;
            d.status["pending"] = 0;
        });
        p.reload();
        QCOMPARE(p.view.waitingLineText(), QString());
        QVERIFY(!p.view.shownParts().contains("waiting"));
    }

    void sessionsAreaGrowsToItsLimitAndWidthStays()
    {
        Panel p;
        p.f.daemon.set([](ScriptedDaemon& d) {
            d.sessions = Json::array({session("a", "working"), session("b", "waiting")});
        });
        p.reload();
        const int shortHeight = p.view.sessionsArea()->height();
        QVERIFY(shortHeight > 0 && shortHeight < MenuView::kMaxSessionsHeight);
        QCOMPARE(shortHeight,
                 p.view.sessionsView()->heightForWidth(MenuView::kWidth - 2 * MenuView::kPadding));

        p.f.daemon.set([](ScriptedDaemon& d) {
            d.sessions = Json::array();
            for (int i = 0; i < 60; ++i)
                d.sessions.push_back(session(std::to_string(i).c_str(), "working"));
        });
        p.reload();
        QCOMPARE(p.view.sessionsArea()->height(), MenuView::kMaxSessionsHeight);
        QCOMPARE(p.view.sessionsView()->rowCount(), 60);

        // A long notice wraps over several lines and never widens the panel.
        p.f.desktop.loginItem->failure = QString(400, QChar('x')).replace(50, 1, " ");
        p.view.header()->actionsMenu()->openAtLoginAction()->trigger();
        QVERIFY(p.view.noticeLine()->isVisible());
        QCOMPARE(p.view.width(), MenuView::kWidth);
        QVERIFY(p.view.heightForWidth(MenuView::kWidth) > 0);
        QVERIFY(p.view.noticeLine()->heightForWidth(MenuView::kWidth - 2 * MenuView::kPadding) >
                2 * p.view.noticeLine()->fontMetrics().height());
        saveShot(&p.view, "long-list-notice");
    }

    void eachOpeningAsksForADetailedRefresh()
    {
        UiFixture f;
        MenuView view(f.model.get());
        QSignalSpy refreshes(f.model.get(), &AppModel::refreshStarted);
        view.show();
        QCOMPARE(refreshes.count(), 1);
        QCOMPARE(refreshes.at(0).at(0).toBool(), true);
        view.hide();
        view.show();
        QCOMPARE(refreshes.count(), 2);
        QVERIFY(settle(*f.model));
        QCOMPARE(countCommand(f.daemon.daemon, "sessions"), 2);
    }

    void localStateIsDroppedWhenViewsLeave()
    {
        Panel p;
        p.f.daemon.set([](ScriptedDaemon& d) {
            d.sessions = Json::array({session("s1", "working"), session("s2", "ended")});
            d.devices = Json::array({phone("p1", "Pixel"), phone("p2", "iPhone")});
        });
        p.reload();
        p.view.sessionsView()->toggle("s1");
        p.view.phonesView()->row("p2")->trashButton()->click();
        QCOMPARE(p.view.phonesView()->removing(), std::optional<std::string>("p2"));

        // The same views across a reload keep their state.
        p.reload();
        QCOMPARE(p.view.sessionsView()->expanded(), std::optional<std::string>("s1"));
        QVERIFY(p.view.phonesView()->row("p2")->confirming());

        p.f.model->startPairing();
        QVERIFY(settle(*p.f.model));
        QVERIFY(p.view.pairingView());
        p.f.model->stopPairing();
        QVERIFY(settle(*p.f.model));
        QVERIFY(p.view.sessionsView() && p.view.phonesView());
        QCOMPARE(p.view.sessionsView()->expanded(), std::nullopt);
        QCOMPARE(p.view.phonesView()->removing(), std::nullopt);
        QVERIFY(!p.view.sessionsView()->row("s1")->expanded());
        QVERIFY(!p.view.phonesView()->row("p2")->confirming());
    }

    void headerShowsTheStatus_data()
    {
        QTest::addColumn<bool>("running");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("hosts");
        QTest::addColumn<int>("connected");
        QTest::addColumn<int>("devices");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("subtitle");
        QTest::newRow("down") << false << "x" << QStringList() << 0 << 0 << "harkline"
                              << "Service not running";
        QTest::newRow("empty name") << true << "" << QStringList{"10.0.0.2"} << 1 << 2 << ""
                                    << "10.0.0.2:7420 · 1 of 2 phones connected";
        QTest::newRow("no hosts") << true << "desk" << QStringList() << 0 << 0 << "desk"
                                  << "port 7420 · 0 of 0 phones connected";
        QTest::newRow("first host only")
            << true << "desk" << QStringList{"a.local", "b.local"} << 3 << 1 << "desk"
            << "a.local:7420 · 3 of 1 phones connected";
        QTest::newRow("markup and placeholders stay literal")
            << true << "<b>bold</b>" << QStringList{"%2host"} << 1 << 1 << "<b>bold</b>"
            << "%2host:7420 · 1 of 1 phones connected";
    }

    void headerShowsTheStatus()
    {
        QFETCH(bool, running);
        QFETCH(QString, name);
        QFETCH(QStringList, hosts);
        QFETCH(int, connected);
        QFETCH(int, devices);
        Panel p;
        p.f.daemon.set([&](ScriptedDaemon& d) {
            d.running = running;
            d.status["name"] = name.toStdString();
            d.status["hosts"] = Json::array();
            for (const QString& h : hosts)
                d.status["hosts"].push_back(h.toStdString());
            d.status["connected"] = connected;
            d.status["devices"] = devices;
        });
        p.reload();
        QTEST(p.view.header()->title(), "title");
        QTEST(p.view.header()->subtitle(), "subtitle");
        QCOMPARE(p.view.header()->dotIsGreen(), running);
        QCOMPARE(p.view.header()->actionsMenu()->sendTestAction()->isEnabled(), running);
    }

    void headerActions()
    {
        Panel p;
        ActionsMenu* menu = p.view.header()->actionsMenu();
        QStringList titles;
        for (QAction* a : menu->actions())
            titles << (a->isSeparator() ? "-" : a->text());
        QCOMPARE(titles, QStringList({"Send Test Notification", "Restart Service", "Open Log", "-",
                                      "Open at Login", "-", "Quit"}));
        QVERIFY(p.view.header()->actionsButton()->menu() == menu);
        QVERIFY(!p.view.header()->actionsButton()->accessibleName().isEmpty());

        // Withdrawn status: only the test notification is out of reach.
        p.f.daemon.set([](ScriptedDaemon& d) { d.running = false; });
        p.reload();
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
        QCOMPARE(*p.f.model->notice(),
                 QString("Could not change the login item: the folder is read-only"));
        QVERIFY(p.f.desktop.loginItem->on);

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
        p.f.daemon.set([](ScriptedDaemon& d) { d.running = false; });
        p.reload();
        NotRunningView* nr = p.view.notRunningView();
        QVERIFY(nr);
        QCOMPARE(nr->message()->text(),
                 QString("The harkline service is not running, so phones get no notifications."));
        QCOMPARE(nr->startButton()->text(), QString("Start Service"));
        QCOMPARE(nr->openLogButton()->text(), QString("Open Log"));

        p.f.service->succeeds = false;
        p.f.model->startService(false);
        QVERIFY(QTest::qWaitFor([&] { return p.f.model->notice().has_value(); }, 8000));
        QVERIFY(settle(*p.f.model));
        const int runs = p.f.service->runs;

        // Return, wherever the focus is in the panel, is "Start Service"; the notice goes at once.
        QApplication::setActiveWindow(&p.view);
        QVERIFY(QTest::qWaitForWindowActive(&p.view));
        nr->openLogButton()->setFocus();
        QTRY_VERIFY(nr->openLogButton()->hasFocus());
        // The notice goes at once, before the start's own outcome (which may bring a new one).
        QStringList notices;
        connect(p.f.model.get(), &AppModel::noticeChanged, this,
                [&] { notices << p.f.model->notice().value_or("(none)"); });
        QTest::keyClick(&p.view, Qt::Key_Return);
        QVERIFY(!notices.isEmpty());
        QCOMPARE(notices.first(), QString("(none)"));
        QVERIFY(QTest::qWaitFor([&] { return p.f.service->runs == runs + 1; }));
        QVERIFY(settle(*p.f.model));
        QCOMPARE(p.f.desktop.fileOpener->opened.size(), 0);

        nr->openLogButton()->click();
        QCOMPARE(p.f.desktop.fileOpener->opened.size(), 1);
        saveShot(&p.view, "not-running");
    }
};

QTEST_MAIN(MenuTest)
#include "tst_ui_menu.moc"
