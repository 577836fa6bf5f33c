// The phones section (confirmation in place, pairing button) and the sessions list (rows, their
// detail line and badge, unfolding by id).

#include "PhoneRow.h"
#include "PhonesView.h"
#include "RelativeTime.h"
#include "SessionRow.h"
#include "SessionsView.h"
#include "UiTestKit.h"

#include <QLabel>
#include <QPushButton>
#include <QToolButton>

using namespace harkline;
using namespace harkline::test;
using namespace harkline::ui;
using namespace std::chrono_literals;

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
    void phonesEmptyAndFilled()
    {
        UiFixture f;
        PhonesView view(f.model.get());
        QVERIFY(view.emptyText()->isVisibleTo(&view));
        QCOMPARE(view.emptyText()->text(), QString("No phone paired yet."));
        QCOMPARE(view.rowCount(), 0);
        QCOMPARE(view.pairButton()->text(), QString("Pair a Phone…"));

        f.daemon.set([](ScriptedDaemon& d) {
            d.devices = Json::array({phone("p1", "<i>Pixel</i>"), phone("p2", "Léa’s iPhone")});
        });
        QVERIFY(f.refresh());
        QVERIFY(!view.emptyText()->isVisibleTo(&view));
        QCOMPARE(view.rowCount(), 2);
        QCOMPARE(view.rowAt(0)->nameText(), QString("<i>Pixel</i>"));
        QCOMPARE(view.rowAt(1)->nameText(), QString("Léa’s iPhone"));
        QCOMPARE(view.rowAt(0)->pairedText(), QString("Paired 1 hr. ago"));
        QCOMPARE(view.rowAt(0)->trashButton()->toolTip(), QString("Unpair this phone"));
        saveShot(&view, "phones");

        view.pairButton()->click();
        QVERIFY(settle(*f.model));
        QCOMPARE(countCommand(f.daemon.daemon, "pair"), 1);
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

        view.row("p1")->trashButton()->click();
        QCOMPARE(confirming(), QStringList{"p1"});
        QVERIFY(view.row("p1")->cancelButton()->isVisible());
        QVERIFY(view.row("p1")->removeButton()->isVisible());
        QVERIFY(!view.row("p1")->trashButton()->isVisible());
        saveShot(&view, "phones-confirm");

        view.row("p2")->trashButton()->click(); // the confirmation moves
        QCOMPARE(confirming(), QStringList{"p2"});
        view.row("p2")->cancelButton()->click();
        QCOMPARE(confirming(), QStringList());
        QCOMPARE(countCommand(f.daemon.daemon, "revoke"), 0);

        // "Remove" closes the confirmation before the daemon answers; the row stays until the
        // list without it arrives.
        view.row("p1")->trashButton()->click();
        view.row("p1")->removeButton()->click();
        QCOMPARE(confirming(), QStringList());
        QVERIFY(view.row("p1"));
        QVERIFY(settle(*f.model));
        QCOMPARE(countCommand(f.daemon.daemon, "revoke"), 1);
        QVERIFY(f.daemon.daemon.requests().size() > 0);
        bool named = false;
        for (const std::string& line : f.daemon.daemon.requests())
            named |=
                FakeDaemon::commandOf(line) == "revoke" && line.find("p1") != std::string::npos;
        QVERIFY(named);

        // A confirmation follows the phone's id through a reload that reorders the list.
        view.row("p2")->trashButton()->click();
        f.daemon.set([](ScriptedDaemon& d) {
            d.devices = Json::array({phone("p2", "iPhone"), phone("p3", "Tablet")});
        });
        QVERIFY(f.refresh());
        QCOMPARE(confirming(), QStringList{"p2"});
        QVERIFY(!view.row("p1"));
    }

    void sessionRows_data()
    {
        QTest::addColumn<QString>("state");
        QTest::addColumn<QString>("badge");
        QTest::newRow("working") << "working"
                                 << "Working";
        QTest::newRow("waiting") << "waiting"
                                 << "Needs you";
        QTest::newRow("ended") << "ended"
                               << "Closed";
        QTest::newRow("capital") << "Waiting"
                                 << "Finished";
        QTest::newRow("unknown") << "idle"
                                 << "Finished";
        QTest::newRow("empty") << ""
                               << "Finished";
    }

    void sessionRows()
    {
        QFETCH(QString, state);
        SessionsView view;
        view.setSessions({record("a", state.toUtf8().constData())});
        QTEST(view.rowAt(0)->badgeText(), "badge");
        QVERIFY(!view.emptyText()->isVisibleTo(&view));
    }

    void detailLine()
    {
        SessionsView view;
        ClaudeSession plain = record("a", "working", "", "harkline");
        ClaudeSession busy = record("b", "waiting", "<b>Fix</b> it", "");
        busy.listening = true;
        busy.queued = 3;
        ClaudeSession one = record("c", "ended", "T", "p");
        one.queued = 1;
        ClaudeSession none = record("d", "ended", "T", "p");
        none.queued = 0;
        none.listening = true;
        view.setSessions({plain, busy, one, none});

        const QString ago = relativeTimePhrase(plain.lastActive);
        // Title falls back to the project, which also leads the detail.
        QCOMPARE(view.row("a")->titleText(), QString("harkline"));
        QCOMPARE(view.row("a")->detailText(), "harkline · " + ago);
        // Markup is text; an empty project still leads, so the line opens with the separator.
        QCOMPARE(view.row("b")->titleText(), QString("<b>Fix</b> it"));
        QCOMPARE(view.row("b")->detailText(), " · " + ago + " · phone can reply · 3 queued");
        QCOMPARE(view.row("c")->detailText(), "p · " + ago + " · 1 queued");
        QCOMPARE(view.row("d")->detailText(), "p · " + ago + " · phone can reply");
        QCOMPARE(view.row("a")->accessibleName(), QString("harkline"));
    }

    void emptyList()
    {
        SessionsView view;
        view.setSessions({});
        QVERIFY(view.emptyText()->isVisibleTo(&view));
        QCOMPARE(
            view.emptyText()->text(),
            QString("No Claude Code sessions yet. They appear after the next prompt or reply."));
        view.setSessions({record("a", "working")});
        QVERIFY(!view.emptyText()->isVisibleTo(&view));
        view.setSessions({});
        QCOMPARE(view.rowCount(), 0);
        QVERIFY(view.emptyText()->isVisibleTo(&view));
    }

    void unfoldingFollowsTheId()
    {
        ClaudeSession a = record("a", "working");
        a.lastText = std::string(600, 'w').replace(100, 1, " ");
        ClaudeSession b = record("b", "waiting");
        ClaudeSession c = record("c", "ended"); // no last text
        SessionsView view;
        view.resize(312, 400);
        view.setSessions({a, b, c});
        view.show();
        const int folded = view.row("a")->height();

        // A click in the gap between the texts and the badge counts as a click on the row.
        SessionRow* rowA = view.row("a");
        QTest::mouseClick(rowA, Qt::LeftButton, {}, QPoint(rowA->width() - 70, 3));
        QCOMPARE(view.expanded(), std::optional<std::string>("a"));
        QVERIFY(rowA->expanded());
        QCOMPARE(rowA->shownLastText(), QString::fromStdString(a.lastText));
        QVERIFY(view.row("a")->height() > folded + 2 * rowA->fontMetrics().height());
        saveShot(&view, "sessions-unfolded");

        view.row("b")->setFocus();
        QTest::keyClick(view.row("b"), Qt::Key_Space); // another row: the first folds
        QCOMPARE(view.expanded(), std::optional<std::string>("b"));
        QVERIFY(!view.row("a")->expanded());
        QCOMPARE(view.row("a")->height(), folded);
        QTest::mouseClick(view.row("b"), Qt::LeftButton);
        QCOMPARE(view.expanded(), std::nullopt);

        // An unfolded row without last text looks folded.
        view.toggle("c");
        QCOMPARE(view.row("c")->heightForWidth(312), view.row("b")->heightForWidth(312));

        // Reordered and replaced lists keep the unfolded id; a session that leaves and comes back
        // is unfolded again.
        view.toggle("a");
        view.setSessions({c, b, a});
        QVERIFY(view.row("a")->expanded());
        view.setSessions({b});
        QCOMPARE(view.expanded(), std::optional<std::string>("a"));
        view.setSessions({a, b});
        QVERIFY(view.row("a")->expanded());
    }

    void rowsAreKeptById()
    {
        SessionsView view;
        view.setSessions({record("a", "working"), record("b", "ended")});
        SessionRow* a = view.row("a");
        SessionRow* b = view.row("b");
        ClaudeSession changed = record("b", "waiting");
        view.setSessions({changed, record("a", "working")});
        QCOMPARE(view.row("a"), a);
        QCOMPARE(view.row("b"), b);
        QCOMPARE(view.rowAt(0), b);
        QCOMPARE(b->badgeText(), QString("Needs you"));
        // Repeated ids (not sent by a sane daemon) still get a row each, and none is left over.
        view.setSessions({record("x", "working"), record("x", "ended")});
        QCOMPARE(view.rowCount(), 2);
        QCOMPARE(view.findChildren<SessionRow*>().size(), 2);
        view.setSessions({});
        QCOMPARE(view.findChildren<SessionRow*>().size(), 0);
    }
};

QTEST_MAIN(ListsTest)
#include "tst_ui_lists.moc"
