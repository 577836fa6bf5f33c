// The panel and its views, for what pictures cannot show: placement and closing, long content,
// keys, clicks and actions, the phones' confirmation, sessions unfolding, the pairing countdown.

#include "Access.h"
#include "ActionsMenu.h"
#include "Companion.h"
#include "HeaderView.h"
#include "MenuView.h"
#include "ModelKit.h"
#include "NotRunningView.h"
#include "PairingView.h"
#include "PanelWindow.h"
#include "PhoneRow.h"
#include "PhonesView.h"
#include "SessionsView.h"
#include "SingleInstance.h"
#include "TrayHostWatcher.h"

#include <QAccessible>
#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QToolButton>
#include <QWheelEvent>

using namespace harkline;
using namespace harkline::app;
using namespace harkline::test;
using namespace harkline::ui;
using namespace std::chrono_literals;

namespace {

// Every part as tall as it asks, the window as tall as the parts and spacing: no clip, no gap.
bool fitsContent(const QWidget& panel, const ui::MenuView& menu)
{
    int sum = 2 * ui::MenuView::kPadding - ui::MenuView::kSpacing;
    for (const QWidget* part : menu.findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly)) {
        if (part->isHidden())
            continue;
        const int asked = std::clamp(part->hasHeightForWidth() ? part->heightForWidth(part->width())
                                                               : part->sizeHint().height(),
                                     part->minimumHeight(), part->maximumHeight());
        if (part->height() != asked)
            return false;
        sum += part->height() + ui::MenuView::kSpacing;
    }
    return menu.height() == panel.height() && panel.height() == sum;
}

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
        settled();
        view.resize(MenuView::kWidth, view.heightForWidth(MenuView::kWidth));
        QCoreApplication::processEvents();
    }
};

const auto down = [](ScriptedDaemon& d) { d.running = false; };

ClaudeSession record(const char* id, const char* state, std::string lastText = "")
{
    ClaudeSession s(session(id, state, "Title"));
    s.lastText = std::move(lastText);
    return s;
}

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

class PanelTest : public QObject
{
    Q_OBJECT

private slots:
    void placement()
    {
        // Screen 1280x800 with a 30 px top bar; the panel 340x400.
        const QRect available(0, 30, 1280, 770);
        for (const auto& [anchor, topLeft] :
             {std::pair{QRect(600, 4, 22, 22), QPoint(440, 30)},   // top bar: below, centred
              std::pair{QRect(1250, 4, 22, 22), QPoint(940, 30)},  // right edge: kept on screen
              std::pair{QRect(20, 770, 22, 22), QPoint(0, 366)},   // bottom panel: above
              std::pair{QRect(700, 300, 1, 1), QPoint(530, 305)},  // pointer only
              std::pair{QRect(700, 790, 1, 1), QPoint(530, 377)},  // a click in a bottom bar
              std::pair{QRect(700, 40, 1, 1), QPoint(530, 55)}}) { // a click in a top bar
            const QRect placed = PanelWindow::placement(QSize(340, 400), anchor, available);
            QCOMPARE(placed, QRect(topLeft, QSize(340, 400)));
        }
        // Taller than the screen: it keeps its top.
        QCOMPARE(
            PanelWindow::placement(QSize(340, 500), QRect(10, 280, 1, 1), QRect(0, 0, 800, 300)),
            QRect(0, 0, 340, 500));
        // Where the icon cannot be known: the middle of the screen.
        QCOMPARE(PanelWindow::placement(QSize(340, 400), std::nullopt, available),
                 QRect(470, 215, 340, 400));
    }

    void iconPositionIsTrustedOnlyWhereItIsTheScreens()
    {
        const auto anchor = [](QPoint click, DesktopKind desktop) {
            return iconAnchor(click, desktop, [] { return QPoint(7, 7); }); // the pointer
        };
        const QRect reported(QPoint(1150, 12), QSize(1, 1));
        QCOMPARE(anchor({1150, 12}, {false, true}), reported);                 // X11 tray
        QCOMPARE(anchor({}, {false, true}), QRect(QPoint(7, 7), QSize(1, 1))); // X11, no position
        QCOMPARE(anchor({1150, 12}, {true, true}), reported);                  // Plasma, GNOME
        QCOMPARE(anchor({9, 13}, {true, false}), std::nullopt); // waybar: inside its icon
        QCOMPARE(anchor({}, {true, true}), std::nullopt);       // Wayland: the pointer is stale
    }

    void panelWindowFitsTheScreenAndClosesWhenItShould()
    {
        UiFixture f;
        f.daemon.set([](ScriptedDaemon& d) {
            for (int i = 0; i < 1000; ++i)
                d.devices.push_back(phone(("p" + std::to_string(i)).c_str(), "Phone"));
            for (int i = 0; i < 20; ++i)
                d.sessions.push_back(session(("s" + std::to_string(i)).c_str(), "working"));
        });
        auto* menu = new ui::MenuView(f.model.get());
        PanelWindow panel(menu);
        const QRect icon(100, 5, 22, 22);
        panel.toggleAt(icon);
        QVERIFY(panel.isVisible());
        // A window that takes the focus, so Escape reaches it and screen readers list it.
        QCOMPARE(panel.windowType(), Qt::Tool);
        QVERIFY(settle(*f.model));
        QVERIFY(settled() && fitsContent(panel, *menu));
        QVERIFY(panel.height() <= panel.screen()->availableGeometry().height());

        // Header, "Pair a Phone…" and sessions stay; rows scroll, also to a button Tab reaches.
        const auto inside = [&](const QWidget* w) {
            return w->isVisible() && w->height() > 0 &&
                   panel.rect().contains(QRect(w->mapTo(&panel, QPoint()), w->size()));
        };
        ui::PhonesView* phones = menu->phonesView();
        QVERIFY(inside(menu->header()) && inside(phones->pairButton()) &&
                inside(menu->sessionsView()));
        QToolButton* last = phones->rowAt(999)->trashButton();
        QWidget* rows = phones->rowsArea()->viewport();
        QVERIFY(!rows->rect().contains(last->mapTo(rows, QPoint())));
        last->setFocus();
        QVERIFY(rows->rect().contains(QRect(last->mapTo(rows, QPoint()), last->size())));

        // A click elsewhere closes it; the same click on the icon, also an activation, is ignored.
        QEvent deactivate(QEvent::WindowDeactivate);
        QApplication::sendEvent(&panel, &deactivate);
        QVERIFY(!panel.isVisible());
        panel.toggleAt(icon);
        QVERIFY(!panel.isVisible());
        QTest::qWait(PanelWindow::kReopenGuardMs + 50);
        panel.toggleAt(icon);
        QVERIFY(panel.isVisible());
        panel.toggleAt(icon);
        QVERIFY(!panel.isVisible());

        QTest::qWait(PanelWindow::kReopenGuardMs + 50);
        panel.openAt(icon);
        QTest::keyClick(&panel, Qt::Key_Escape);
        QVERIFY(!panel.isVisible());

        // Without a tray: a window "harkline", open without the focus, saying when it is closed.
        panel.setMode(PanelWindow::Mode::Window);
        QSignalSpy closed(&panel, &PanelWindow::windowClosed);
        panel.openAt({});
        QCOMPARE(panel.windowType(), Qt::Window);
        QCOMPARE(panel.windowTitle(), QString("harkline"));
        QApplication::sendEvent(&panel, &deactivate);
        QVERIFY(panel.isVisible());
        QTest::keyClick(&panel, Qt::Key_Escape);
        QVERIFY(!panel.isVisible());
        QCOMPARE(closed.count(), 1);
        QVERIFY(settle(*f.model));
    }

    // Offscreen, as on Wayland, there is no X11 connection, so no XEmbed tray to fall back on.
    void noXEmbedTrayWithoutX11() { QVERIFY(!xembedTrayPresent()); }

    // The hand-over itself is tst_ui_tray's, with the real program.
    void staleLockDoesNotBlockTheNextStart()
    {
        QTemporaryDir dir;
        QFile lock(dir.filePath("harkline-menubar.lock"));
        QVERIFY(lock.open(QIODevice::WriteOnly));
        lock.write("999999\nharkline-menubar\n" + QSysInfo::machineHostName().toUtf8() + "\n");
        lock.close();
        QCOMPARE(SingleInstance(dir.path()).claim(), SingleInstance::Role::Primary);
    }

    // The waiting count is said when it changes, not on every refresh that repeats it.
    void waitingCountIsSaidAndLongListScrolls()
    {
        Panel p;
        const auto* said = p.view.findChild<access::Announcer*>();
        const auto pending = [](int n) {
            return [n](ScriptedDaemon& d) { d.status["pending"] = n; };
        };
        const int before = said->count();
        p.reload(pending(1));
        p.reload(pending(1));
        QCOMPARE(said->count(), before + 1);
        p.reload(pending(0));
        p.reload(pending(2));
        QCOMPARE(said->count(), before + 2);
        QCOMPARE(said->text(), "2 prompts waiting for an answer");

        p.reload([](ScriptedDaemon& d) {
            for (int i = 0; i < 50; ++i)
                d.sessions.push_back(session(std::to_string(i).c_str(), "working"));
        });
        SessionsView* list = p.view.sessionsView();
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
        // Coming back, the list shows its current row, the first one too.
        list->setFocus();
        QTest::keyClick(list, Qt::Key_Home);
        list->verticalScrollBar()->setValue(list->verticalScrollBar()->maximum());
        pair->setFocus();
        list->setFocus();
        QVERIFY(shown(0));
    }

    void headerAndNotRunningActions()
    {
        Panel p;
        ActionsMenu* menu = p.view.header()->actionsMenu();
        // Each opening refreshes in detail and reads the login item; then only the user moves the
        // switch, also when the change fails.
        QSignalSpy refreshes(p.f.model.get(), &AppModel::refreshStarted);
        const int sessions = p.f.daemon.count("sessions");
        p.f.desktop.loginItem->on = true;
        p.view.hide();
        p.view.show();
        QVERIFY(settle(*p.f.model));
        QVERIFY(refreshes.count() == 1 && refreshes.at(0).at(0).toBool());
        QCOMPARE(p.f.daemon.count("sessions"), sessions + 1);
        QVERIFY(menu->openAtLoginAction()->isChecked());
        // Return on the focused ellipsis opens the menu (which runs until closed).
        p.reload(down);
        bool shown = false;
        QTimer::singleShot(100, menu, [&] { shown = menu->isVisible(), menu->close(); });
        QTest::keyClick(p.view.header()->actionsButton(), Qt::Key_Return);
        QVERIFY(shown);
        p.f.desktop.loginItem->failure = QString("the folder is read-only");
        menu->openAtLoginAction()->trigger();
        QVERIFY(!menu->openAtLoginAction()->isChecked());
        QVERIFY(p.f.desktop.loginItem->on && p.view.noticeLine()->isVisible());

        // Restart clears that notice before its own outcome is known.
        menu->restartAction()->trigger();
        QVERIFY(!p.view.noticeLine()->isVisible());
        QVERIFY(settle(*p.f.model));
        QCOMPARE(p.f.desktop.service->restarts.load(), 1);
        menu->openLogAction()->trigger();
        QCOMPARE(p.f.desktop.fileOpener->opened.size(), 1);

        NotRunningView* nr = p.view.notRunningView();
        p.f.desktop.service->succeeds = false;
        p.f.model->startService(false);
        QVERIFY(QTest::qWaitFor([&] { return p.f.model->notice().has_value(); }, 8000));
        QVERIFY(settle(*p.f.model));
        const int runs = p.f.desktop.service->runs;

        // Return presses the focused button, else "Start Service", whose notice goes at once.
        QApplication::setActiveWindow(&p.view);
        QVERIFY(QTest::qWaitForWindowActive(&p.view));
        nr->openLogButton()->setFocus();
        QTRY_VERIFY(nr->openLogButton()->hasFocus());
        QTest::keyClick(nr->openLogButton(), Qt::Key_Return);
        QKeyEvent held(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier, QString(), true);
        QApplication::sendEvent(nr->openLogButton(), &held); // a held key repeats nothing
        QCOMPARE(p.f.desktop.fileOpener->opened.size(), 2);
        QCOMPARE(p.f.desktop.service->runs, runs);
        QStringList notices;
        connect(p.f.model.get(), &AppModel::noticeChanged, this,
                [&] { notices << p.f.model->notice().value_or("(none)"); });
        QTest::keyClick(&p.view, Qt::Key_Return);
        QVERIFY(!notices.isEmpty());
        QCOMPARE(notices.first(), QString("(none)"));
        QVERIFY(QTest::qWaitFor([&] { return p.f.desktop.service->runs == runs + 1; }));
        QCOMPARE(p.f.desktop.fileOpener->opened.size(), 2);
    }

    void unpairingIsConfirmedInPlace()
    {
        UiFixture f;
        f.daemon.set([](ScriptedDaemon& d) {
            d.devices = Json::array({phone("p1", "Pixel"), phone("p2", "iPhone")});
        });
        QVERIFY(f.refresh());
        PhonesView view(f.model.get());
        view.show();
        auto confirming = [&] {
            QStringList ids;
            for (int i = 0; i < view.rowCount(); ++i)
                if (view.rowAt(i)->confirming())
                    ids << QString::fromStdString(view.rowAt(i)->device().id);
            return ids;
        };

        view.pairButton()->click();
        view.row("p1")->trashButton()->click();
        QCOMPARE(confirming(), QStringList{"p1"});
        view.row("p2")->trashButton()->click(); // the confirmation moves
        QCOMPARE(confirming(), QStringList{"p2"});
        view.row("p2")->cancelButton()->click();
        QCOMPARE(confirming(), QStringList());
        // Escape takes the question back; the focus goes to Cancel and back to the trash button,
        // not on down the panel.
        QVERIFY(QTest::qWaitForWindowActive(&view));
        view.row("p2")->trashButton()->setFocus();
        view.row("p2")->trashButton()->click();
        QCOMPARE(QApplication::focusWidget(), view.row("p2")->cancelButton());
        QTest::keyClick(view.row("p2")->cancelButton(), Qt::Key_Escape);
        QCOMPARE(confirming(), QStringList());
        QCOMPARE(QApplication::focusWidget(), view.row("p2")->trashButton());
        QCOMPARE(f.daemon.count("revoke"), 0);

        // "Remove" closes the question at once; the row stays until a list without it arrives.
        view.row("p1")->trashButton()->click();
        view.row("p1")->removeButton()->click();
        QCOMPARE(confirming(), QStringList());
        QVERIFY(view.row("p1"));
        QVERIFY(settle(*f.model));
        const auto sent = f.daemon.daemon.requests();
        QCOMPARE(std::count(sent.begin(), sent.end(), "{\"cmd\":\"revoke\",\"id\":\"p1\"}\n"), 1);
        QCOMPARE(f.daemon.count("pair"), 1);

        // The question follows the phone's id through a reordering reload; so does the tab order.
        view.row("p2")->trashButton()->click();
        f.daemon.set([](ScriptedDaemon& d) {
            d.devices =
                Json::array({phone("p2", "iPhone"), phone("p3", "Tablet"), phone("p1", "Pixel")});
        });
        QTest::failOnWarning(QRegularExpression("^(?!This plugin does not support).*"));
        QVERIFY(f.refresh());
        QCOMPARE(confirming(), QStringList{"p2"});
        QCOMPARE(view.rowsArea()->widget()->findChildren<PhoneRow*>(Qt::FindDirectChildrenOnly),
                 QList<PhoneRow*>({view.row("p2"), view.row("p3"), view.row("p1")}));
        f.daemon.set([](ScriptedDaemon& d) { d.devices = Json::array({phone("p3", "Tablet")}); });
        QVERIFY(f.refresh());
        QVERIFY(view.rowCount() == 1 && !view.row("p1") && !view.row("p2"));
    }

    void unfoldingByClickKeysAndActionFollowsTheId()
    {
        const ClaudeSession a =
            record("a", "working", "first line\nsecond " + std::string(600, 'w'));
        const ClaudeSession b = record("b", "waiting", "short"), c = record("c", "ended");
        SessionsView view;
        view.resize(312, 300);
        view.setSessions({a, b, c});
        view.show();
        const int folded = view.rowRect(0).height();

        // A click in the gap between the texts and the badge counts as a click on the row.
        QTest::mouseClick(view.viewport(), Qt::LeftButton, {},
                          view.rowRect(0).topRight() + QPoint(-70, 3));
        QCOMPARE(view.expanded(), std::optional<std::string>("a"));
        QVERIFY(view.showsLastText(0));

        // Keys act on the current row: Return, Enter and Space (un)fold it, and fold the other.
        QCOMPARE(view.currentRow(), 0);
        QTest::keyClick(&view, Qt::Key_Down);
        QCOMPARE(view.currentRow(), 1);
        QTest::keyClick(&view, Qt::Key_Return);
        QCOMPARE(view.expanded(), std::optional<std::string>("b"));
        QVERIFY(!view.showsLastText(0) && view.rowRect(0).height() == folded);
        QTest::keyClick(&view, Qt::Key_Enter);
        QCOMPARE(view.expanded(), std::nullopt);
        QTest::keyClick(&view, Qt::Key_Space);
        QCOMPARE(view.expanded(), std::optional<std::string>("b"));
        // An unfolded row without a last text looks folded.
        QTest::keyClick(&view, Qt::Key_End);
        QTest::keyClick(&view, Qt::Key_Space);
        QCOMPARE(view.expanded(), std::optional<std::string>("c"));
        QVERIFY(!view.showsLastText(2));
        QCOMPARE(view.contentHeight(312), 3 * folded + 2 * 8);

        // Reordered and replaced lists keep the unfolded and the current id, also one that left.
        view.toggle("a");
        view.setSessions({c, b, a});
        QVERIFY(view.showsLastText(2));
        QCOMPARE(view.currentRow(), 0);
        view.setSessions({b});
        view.setSessions({a, b});
        QVERIFY(view.showsLastText(0));
        // When the current session leaves, the current row is the one in its place.
        view.setSessions({a, b, c});
        QTest::keyClick(&view, Qt::Key_End);
        view.setSessions({a, b});
        QCOMPARE(view.currentRow(), 1);

        // For screen readers: a huge title cut at a character boundary, and a toggle action.
        ClaudeSession huge = record("h", "working", "Done.");
        huge.title = std::string(2047, 't') + "\u00e9" + std::string(3000, 't');
        view.setSessions({huge, c});
        QAccessibleInterface* list = QAccessible::queryAccessibleInterface(&view);
        QAccessibleInterface* row = list->child(0);
        QCOMPARE(list->indexOfChild(row), 0);
        QCOMPARE(list->childAt(row->rect().center().x(), row->rect().center().y()), row);
        QCOMPARE(row->text(QAccessible::Name), QString(2047, 't'));
        row->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
        QVERIFY(row->state().expanded && view.expanded() == std::optional<std::string>("h"));
        QVERIFY(row->text(QAccessible::Description).endsWith(". Done."));
        // A row with nothing to unfold never says it is unfolded.
        list->child(1)->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
        QVERIFY(!list->child(1)->state().expanded && !row->state().expanded);
    }

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

QTEST_MAIN(PanelTest)
#include "tst_ui_panel.moc"
