// The panel's placement and opening rules, and the single-instance hand-over.

#include "MenuView.h"
#include "ModelKit.h"
#include "PanelWindow.h"
#include "SingleInstance.h"

#include <QSysInfo>
#include <QTemporaryDir>

#include <thread>

using namespace harkline;
using namespace harkline::app;
using namespace harkline::test;

class PanelTest : public QObject
{
    Q_OBJECT

private slots:
    void placement()
    {
        // Screen 1280x800 with a 30 px top bar; the panel 340x400.
        const QRect available(0, 30, 1280, 770);
        for (const auto& [anchor, topLeft] :
             {std::pair{QRect(600, 4, 22, 22), QPoint(440, 30)},  // top bar: below, centred
              std::pair{QRect(1250, 4, 22, 22), QPoint(940, 30)}, // right edge: kept on screen
              std::pair{QRect(20, 770, 22, 22), QPoint(0, 366)},  // bottom panel: above
              std::pair{QRect(700, 300, 1, 1), QPoint(530, 305)}, // pointer only
              std::pair{QRect(700, 790, 1, 1), QPoint(530, 386)}}) {
            const QRect placed = PanelWindow::placement(QSize(340, 400), anchor, available);
            QCOMPARE(placed, QRect(topLeft, QSize(340, 400)));
        }
        // Taller than the screen: it keeps its top.
        const QRect placed =
            PanelWindow::placement(QSize(340, 500), QRect(10, 280, 1, 1), QRect(0, 0, 800, 300));
        QCOMPARE(placed.top(), 0);
        QVERIFY(placed.left() >= 0 && placed.right() <= 799);
    }

    void clickOnTheIconTogglesWithoutReopening()
    {
        UiFixture f;
        PanelWindow panel(new ui::MenuView(f.model.get()));
        const QRect icon(100, 5, 22, 22);
        panel.toggleAt(icon);
        QVERIFY(panel.isVisible());
        QCOMPARE(panel.width(), ui::MenuView::kWidth);
        QCOMPARE(panel.windowType(), Qt::Popup);

        // The click that closed it (outside the popup) also arrives as an activation: ignored.
        panel.close();
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

        // Without a tray it is an ordinary window titled "harkline".
        panel.setMode(PanelWindow::Mode::Window);
        panel.openAt({});
        QCOMPARE(panel.windowType(), Qt::Window);
        QCOMPARE(panel.windowTitle(), QString("harkline"));
        QVERIFY(panel.isVisible());
        QVERIFY(settle(*f.model));
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
