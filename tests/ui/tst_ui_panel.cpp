// The panel's placement and opening and closing rules, its height after each change of its
// content, and the single-instance hand-over.

#include "ActionsMenu.h"
#include "Companion.h"
#include "HeaderView.h"
#include "MenuView.h"
#include "ModelKit.h"
#include "PairingView.h"
#include "PanelWindow.h"
#include "PhoneRow.h"
#include "PhonesView.h"
#include "SessionsView.h"
#include "SingleInstance.h"

#include <QAccessible>
#include <QPushButton>
#include <QRegularExpression>
#include <QScreen>
#include <QScrollArea>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QToolButton>

#include <thread>

using namespace harkline;
using namespace harkline::app;
using namespace harkline::test;

namespace {

// Every part of the panel has the height it asks for, no more, no less, and the window is as
// tall as the parts and their spacing: nothing clipped, no gap.
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

// Lets every layout, and the window's fit after them, run to the end.
bool settled()
{
    for (int i = 0; i < 10; ++i)
        QCoreApplication::processEvents();
    return true;
}

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
        const QRect placed =
            PanelWindow::placement(QSize(340, 500), QRect(10, 280, 1, 1), QRect(0, 0, 800, 300));
        QCOMPARE(placed.top(), 0);
        QVERIFY(placed.left() >= 0 && placed.right() <= 799);
        // Where the icon cannot be known: the middle of the screen.
        QCOMPARE(PanelWindow::placement(QSize(340, 400), std::nullopt, available),
                 QRect(470, 215, 340, 400));
    }

    void iconPositionIsTrustedOnlyWhereItIsTheScreens()
    {
        const auto pointer = [] { return QPoint(7, 7); };
        const QRect reported(QPoint(1150, 12), QSize(1, 1));
        const QRect atPointer(QPoint(7, 7), QSize(1, 1));
        struct Row
        {
            QPoint click;
            DesktopKind desktop;
            std::optional<QRect> anchor;
        };
        for (const Row& row : {
                 Row{{1150, 12}, {false, true}, reported},  // X11 tray
                 Row{{}, {false, true}, atPointer},         // X11, no position given
                 Row{{1150, 12}, {true, true}, reported},   // Plasma, GNOME Shell
                 Row{{9, 13}, {true, false}, std::nullopt}, // waybar: inside its icon
                 Row{{}, {true, true}, std::nullopt},       // Wayland: the pointer is stale
             })
            QCOMPARE(iconAnchor(row.click, row.desktop, pointer), row.anchor);
    }

    void clickOnTheIconTogglesWithoutReopening()
    {
        UiFixture f;
        PanelWindow panel(new ui::MenuView(f.model.get()));
        const QRect icon(100, 5, 22, 22);
        panel.toggleAt(icon);
        QVERIFY(panel.isVisible());
        QCOMPARE(panel.width(), ui::MenuView::kWidth);
        // A window that takes the focus, so Escape reaches it and screen readers list it.
        QCOMPARE(panel.windowType(), Qt::Tool);
        QAccessibleInterface* a11y = QAccessible::queryAccessibleInterface(&panel); // Qt owns it
        QCOMPARE(a11y->role(), QAccessible::Window);
        QCOMPARE(a11y->text(QAccessible::Name), QString("harkline"));

        // A click elsewhere takes the focus away and closes it; that same click on the icon
        // also arrives as an activation: ignored.
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

        // Held pointer (X11): a press inside is the panel's own, one outside is a click elsewhere.
        panel.openAt(icon);
        QTest::mousePress(&panel, Qt::LeftButton, {}, QPoint(5, 5));
        QVERIFY(panel.isVisible());
        QTest::mousePress(&panel, Qt::LeftButton, {}, QPoint(-5, 5));
        QVERIFY(!panel.isVisible());

        // Without a tray it is an ordinary window titled "harkline", which stays open when it
        // loses the focus and says when the user closes it.
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

    void heightFollowsTheContent()
    {
        // Opening prints nothing (the offscreen platform's own limits aside).
        QTest::failOnWarning(QRegularExpression("^(?!This plugin does not support).*"));
        UiFixture f;
        f.daemon.set([](ScriptedDaemon& d) {
            d.devices =
                Json::array({phone("p1", "Pixel"), phone("p2", "iPhone"), phone("p3", "Tab")});
            Json unfolding = session("s", "working");
            unfolding["last_text"] = std::string(1500, 'w').replace(40, 1, " ");
            d.sessions = Json::array({unfolding, session("t", "ended")});
            d.pair["expires_in"] = 2;
        });
        auto* menu = new ui::MenuView(f.model.get());
        PanelWindow panel(menu);
        panel.openAt(QRect(100, 5, 22, 22));
        QVERIFY(settle(*f.model));
        const auto fits = [&] { return settled() && fitsContent(panel, *menu); };
        QVERIFY(fits());
        const int folded = panel.height();

        ui::SessionsView* list = menu->sessionsView();
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                          list->rowRect(0).topLeft() + QPoint(30, 5));
        QVERIFY(fits() && panel.height() > folded + 40);
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                          list->rowRect(0).topLeft() + QPoint(30, 5));
        QVERIFY(fits() && panel.height() == folded);

        f.daemon.set([](ScriptedDaemon& d) { d.devices = Json::array({phone("p1", "Pixel")}); });
        QVERIFY(f.refresh() && fits() && panel.height() < folded);

        const int quiet = panel.height();
        f.desktop.loginItem->failure = QString("the folder is read-only");
        menu->header()->actionsMenu()->openAtLoginAction()->trigger();
        QVERIFY(fits() && panel.height() > quiet);

        // A pairing code, then its expiry: the code's height goes with it.
        f.model->startPairing();
        QVERIFY(settle(*f.model) && menu->pairingView());
        QVERIFY(fits());
        const int withCode = panel.height();
        QVERIFY(QTest::qWaitFor([&] { return menu->pairingView()->showsExpired(); }, 5000));
        QVERIFY(fits() && panel.height() < withCode - 200);
    }

    void thousandPhonesStayWithinTheScreen()
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
        panel.openAt(QRect(100, 5, 22, 22));
        QVERIFY(settle(*f.model));
        QVERIFY(settled() && fitsContent(panel, *menu));
        QVERIFY(panel.height() <= panel.screen()->availableGeometry().height());

        // The header, "Pair a Phone…" and the sessions stay in the panel; the rows scroll, and a
        // phone's button reached by the keyboard scrolls into view.
        const auto inside = [&](const QWidget* w) {
            return w->isVisible() && w->height() > 0 &&
                   panel.rect().contains(QRect(w->mapTo(&panel, QPoint()), w->size()));
        };
        ui::PhonesView* phones = menu->phonesView();
        QVERIFY(inside(menu->header()) && inside(phones->pairButton()) &&
                inside(menu->sessionsView()));
        QToolButton* last = phones->rowAt(999)->trashButton();
        QVERIFY(!phones->rowsArea()->viewport()->rect().contains(
            last->mapTo(phones->rowsArea()->viewport(), QPoint())));
        last->setFocus();
        QVERIFY(phones->rowsArea()->viewport()->rect().contains(
            QRect(last->mapTo(phones->rowsArea()->viewport(), QPoint()), last->size())));
    }

    void secondStartOpensTheFirst()
    {
        QTemporaryDir dir;
        SingleInstance first(dir.path());
        QCOMPARE(first.claim(), SingleInstance::Role::Primary);
        QSignalSpy opened(&first, &SingleInstance::openRequested);

        // The second runs on another thread, as another process would, so the first can answer.
        SingleInstance::Role role = SingleInstance::Role::Primary;
        std::thread second([&] { role = SingleInstance(dir.path()).claim(); });
        QVERIFY(QTest::qWaitFor([&] { return opened.count() == 1; }, 5000));
        second.join();
        QCOMPARE(role, SingleInstance::Role::Secondary);

        // A lock left by a process that is gone does not block the next start.
        QTemporaryDir other;
        QFile lock(other.filePath("harkline-menubar.lock"));
        QVERIFY(lock.open(QIODevice::WriteOnly));
        lock.write("999999\nharkline-menubar\n" + QSysInfo::machineHostName().toUtf8() + "\n");
        lock.close();
        QCOMPARE(SingleInstance(other.path()).claim(), SingleInstance::Role::Primary);
    }
};

QTEST_MAIN(PanelTest)
#include "tst_ui_panel.moc"
