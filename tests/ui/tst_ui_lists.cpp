// The phones section (confirmation in place, pairing button) and the sessions list (rows, their
// detail line and badge, unfolding by id).

#include "ModelKit.h"
#include "PhoneRow.h"
#include "PhonesView.h"
#include "RelativeTime.h"
#include "SessionRow.h"
#include "SessionsView.h"

#include <QLabel>
#include <QPushButton>
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
    void phonesEmptyAndFilled()
    {
        UiFixture f;
        PhonesView view(f.model.get());
        QVERIFY(view.emptyText()->isVisibleTo(&view));
        QCOMPARE(view.rowCount(), 0);

        f.daemon.set([](ScriptedDaemon& d) {
            d.devices = Json::array({phone("p1", "<i>Pixel</i>"), phone("p2", "Léa’s iPhone")});
        });
        QVERIFY(f.refresh());
        QVERIFY(!view.emptyText()->isVisibleTo(&view));
        QCOMPARE(view.rowCount(), 2);
        QCOMPARE(view.rowAt(0)->nameText(), QString("<i>Pixel</i>"));
        QCOMPARE(view.rowAt(1)->nameText(), QString("Léa’s iPhone"));
        QCOMPARE(view.rowAt(0)->pairedText(),
                 "Paired " + relativeTimePhrase(f.model->devices().at(0).paired));
        view.pairButton()->click();
        QVERIFY(settle(*f.model));
        QCOMPARE(f.daemon.count("pair"), 1);
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
        QVERIFY(view.row("p1")->removeButton()->isVisible() &&
                !view.row("p1")->trashButton()->isVisible());
        view.row("p2")->trashButton()->click(); // the confirmation moves
        QCOMPARE(confirming(), QStringList{"p2"});
        view.row("p2")->cancelButton()->click();
        QCOMPARE(confirming(), QStringList());
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

        // A confirmation follows the phone's id through a reload that reorders the list.
        view.row("p2")->trashButton()->click();
        f.daemon.set([](ScriptedDaemon& d) {
            d.devices = Json::array({phone("p2", "iPhone"), phone("p3", "Tablet")});
        });
        QVERIFY(f.refresh());
        QCOMPARE(confirming(), QStringList{"p2"});
        QVERIFY(!view.row("p1"));
    }

    void sessionRowsBadgeAndDetail()
    {
        SessionsView view;
        for (const auto& [state, badge] :
             {std::pair{"working", "Working"}, std::pair{"waiting", "Needs you"},
              std::pair{"ended", "Closed"}, std::pair{"Waiting", "Finished"},
              std::pair{"", "Finished"}}) {
            view.setSessions({record("a", state)});
            QCOMPARE(view.rowAt(0)->badgeText(), QString(badge));
        }

        ClaudeSession plain = record("a", "working", "", "harkline");
        ClaudeSession busy = record("b", "waiting", "<b>Fix</b> it", "");
        busy.listening = true;
        busy.queued = 3;
        ClaudeSession one = record("c", "ended", "T", "p");
        one.queued = 1;
        view.setSessions({plain, busy, one});
        const QString ago = relativeTimePhrase(plain.lastActive);
        // Title falls back to the project, which also leads the detail.
        QCOMPARE(view.row("a")->titleText(), QString("harkline"));
        QCOMPARE(view.row("a")->detailText(), "harkline · " + ago);
        // Markup is text; an empty project still leads, so the line opens with the separator.
        QCOMPARE(view.row("b")->titleText(), QString("<b>Fix</b> it"));
        QCOMPARE(view.row("b")->detailText(), " · " + ago + " · phone can reply · 3 queued");
        QCOMPARE(view.row("c")->detailText(), "p · " + ago + " · 1 queued");
    }

    void rowsAreKeptByIdAndEmptyListSaysSo()
    {
        SessionsView view;
        view.setSessions({});
        QVERIFY(view.emptyText()->isVisibleTo(&view));
        view.setSessions({record("a", "working"), record("b", "ended")});
        QVERIFY(!view.emptyText()->isVisibleTo(&view));
        SessionRow* a = view.row("a");
        SessionRow* b = view.row("b");
        view.setSessions({record("b", "waiting"), record("a", "working")});
        QCOMPARE(view.row("a"), a);
        QCOMPARE(view.rowAt(0), b);
        QCOMPARE(b->badgeText(), QString("Needs you"));
        // Repeated ids (not sent by a sane daemon) still get a row each, and none is left over.
        view.setSessions({record("x", "working"), record("x", "ended")});
        QCOMPARE(view.findChildren<SessionRow*>().size(), 2);
        view.setSessions({});
        QCOMPARE(view.findChildren<SessionRow*>().size(), 0);
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
        QCOMPARE(rowA->shownLastText(), QString::fromStdString(a.lastText));
        QVERIFY(rowA->height() > folded + 2 * rowA->fontMetrics().height());

        view.row("b")->setFocus();
        QTest::keyClick(view.row("b"), Qt::Key_Space); // another row: the first folds
        QCOMPARE(view.expanded(), std::optional<std::string>("b"));
        QVERIFY(!rowA->expanded());
        QCOMPARE(rowA->height(), folded);
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
        view.setSessions({a, b});
        QVERIFY(view.row("a")->expanded());
    }
};

QTEST_MAIN(ListsTest)
#include "tst_ui_lists.moc"
