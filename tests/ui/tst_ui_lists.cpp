// The phones section (confirmation in place, pairing button) and the sessions list (unfolding by
// id with the mouse, the keys and a screen reader's action).

#include "ModelKit.h"
#include "PhoneRow.h"
#include "PhonesView.h"
#include "SessionsView.h"

#include <QAccessible>
#include <QApplication>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollArea>
#include <QToolButton>

using namespace harkline;
using namespace harkline::test;
using namespace harkline::ui;

namespace {

ClaudeSession record(const char* id, const char* state, const char* title = "Title",
                     const char* project = "proj")
{
    return ClaudeSession(session(id, state, title, project));
}

} // namespace

class ListsTest : public QObject
{
    Q_OBJECT

private slots:
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
        // not on down the panel as hiding a focused button would send it.
        QVERIFY(QTest::qWaitForWindowActive(&view));
        view.row("p2")->trashButton()->setFocus();
        view.row("p2")->trashButton()->click();
        QCOMPARE(QApplication::focusWidget(), view.row("p2")->cancelButton());
        QTest::keyClick(view.row("p2")->cancelButton(), Qt::Key_Escape);
        QCOMPARE(confirming(), QStringList());
        QCOMPARE(QApplication::focusWidget(), view.row("p2")->trashButton());
        QCOMPARE(f.daemon.count("revoke"), 0);

        // "Remove" closes the confirmation before the daemon answers; the row stays until the
        // list without it arrives.
        view.row("p1")->trashButton()->click();
        view.row("p1")->removeButton()->click();
        QCOMPARE(confirming(), QStringList());
        QVERIFY(view.row("p1"));
        QVERIFY(settle(*f.model));
        const auto sent = f.daemon.daemon.requests();
        QCOMPARE(std::count(sent.begin(), sent.end(), "{\"cmd\":\"revoke\",\"id\":\"p1\"}\n"), 1);
        QCOMPARE(f.daemon.count("pair"), 1);

        // A confirmation follows the phone's id through a reload that reorders the list; screen
        // readers meet the rows in the new order.
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

    void unfoldingByClickAndKeysFollowsTheId()
    {
        ClaudeSession a = record("a", "working");
        a.lastText = "first line\nsecond " + std::string(600, 'w');
        ClaudeSession b = record("b", "waiting");
        b.lastText = "short";
        ClaudeSession c = record("c", "ended"); // no last text
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

        // The keys act on the current row: Down moves; Return, Enter and Space fold and unfold,
        // and another row unfolding folds the first.
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

        // Reordered and replaced lists keep the unfolded and the current id; a session that
        // leaves and comes back is unfolded again.
        view.toggle("a");
        view.setSessions({c, b, a});
        QVERIFY(view.showsLastText(2));
        QCOMPARE(view.currentRow(), 0);
        view.setSessions({b});
        view.setSessions({a, b});
        QVERIFY(view.showsLastText(0));
        // Repeated ids (not sent by a sane daemon) still get a row each.
        view.setSessions({a, a});
        QCOMPARE(view.count(), 2);
        QVERIFY(view.showsLastText(0) && !view.showsLastText(1));
        // The keyboard stays on its session; when that one leaves, on the row now in its place.
        view.setSessions({a, b, c});
        QTest::keyClick(&view, Qt::Key_End);
        view.setSessions({a, b});
        QCOMPARE(view.currentRow(), 1);
    }

    void rowsUnfoldForScreenReaders()
    {
        // A huge title is cut to what a line can show, at a character boundary.
        ClaudeSession a = record("a", "working");
        a.title = std::string(2047, 't') + "\u00e9" + std::string(3000, 't');
        a.lastText = "Done.";
        SessionsView view;
        view.resize(312, 300);
        view.setSessions({a, record("b", "ended")});
        view.show();
        QAccessibleInterface* list = QAccessible::queryAccessibleInterface(&view);
        QAccessibleInterface* row = list->child(0);
        QCOMPARE(list->indexOfChild(row), 0);
        QCOMPARE(list->childAt(row->rect().center().x(), row->rect().center().y()), row);
        QCOMPARE(row->text(QAccessible::Name), QString(2047, 't'));
        row->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
        QVERIFY(row->state().expanded && view.expanded() == std::optional<std::string>("a"));
        QVERIFY(row->text(QAccessible::Description).endsWith(". Done."));
        // A row with nothing to unfold never says it is unfolded.
        list->child(1)->actionInterface()->doAction(QAccessibleActionInterface::toggleAction());
        QVERIFY(!list->child(1)->state().expanded && !row->state().expanded);
    }
};

QTEST_MAIN(ListsTest)
#include "tst_ui_lists.moc"
