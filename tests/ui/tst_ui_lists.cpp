// The phones' confirmation in place and the sessions list unfolding by id: mouse, keys, AT-SPI.

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

ClaudeSession record(const char* id, const char* state, std::string lastText = "")
{
    ClaudeSession s(session(id, state, "Title"));
    s.lastText = std::move(lastText);
    return s;
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
        // Repeated ids (not sent by a sane daemon) still get a row each.
        view.setSessions({a, a});
        QCOMPARE(view.count(), 2);
        QVERIFY(view.showsLastText(0) && !view.showsLastText(1));
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
};

QTEST_MAIN(ListsTest)
#include "tst_ui_lists.moc"
