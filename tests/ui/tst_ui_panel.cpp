// The panel's placement and opening rules, and the single-instance hand-over.

#include "MenuView.h"
#include "PanelWindow.h"
#include "SingleInstance.h"
#include "UiTestKit.h"

#include <QSignalSpy>
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
    void placement_data()
    {
        QTest::addColumn<QRect>("anchor");
        QTest::addColumn<QRect>("expected");
        const QSize size(340, 400);
        // Screen 1280x800 with a 30 px top bar: available 0,30 .. 1279,799.
        QTest::newRow("icon in a top bar, below it, centred")
            << QRect(600, 4, 22, 22) << QRect(QPoint(440, 30), size);
        QTest::newRow("icon at the right edge, kept on screen")
            << QRect(1250, 4, 22, 22) << QRect(QPoint(940, 30), size);
        QTest::newRow("bottom panel, above the icon")
            << QRect(20, 770, 22, 22) << QRect(QPoint(0, 366), size);
        QTest::newRow("pointer only, mid screen")
            << QRect(700, 300, 1, 1) << QRect(QPoint(530, 305), size);
        QTest::newRow("pointer low on the screen")
            << QRect(700, 790, 1, 1) << QRect(QPoint(530, 386), size);
    }

    void placement()
    {
        QFETCH(QRect, anchor);
        const QRect available(0, 30, 1280, 770);
        const QRect placed = PanelWindow::placement(QSize(340, 400), anchor, available);
        QTEST(placed, "expected");
        QVERIFY(available.contains(placed));
    }

    void tallerThanTheScreenKeepsItsTop()
    {
        const QRect available(0, 0, 800, 300);
        const QRect placed =
            PanelWindow::placement(QSize(340, 500), QRect(10, 280, 1, 1), available);
        QCOMPARE(placed.top(), 0);
        QVERIFY(placed.left() >= 0 && placed.right() <= 799);
    }

    void clickOnTheIconTogglesWithoutReopening()
    {
        UiFixture f;
        auto* menu = new ui::MenuView(f.model.get());
        PanelWindow panel(menu);
        QVERIFY(settle(*f.model));
        panel.toggleAt(QRect(100, 5, 22, 22));
        QVERIFY(panel.isVisible());
        QCOMPARE(panel.width(), ui::MenuView::kWidth);
        QCOMPARE(panel.windowType(), Qt::Popup);

        // The click that closed it (outside the popup) also arrives as an activation: ignored.
        panel.close();
        panel.toggleAt(QRect(100, 5, 22, 22));
        QVERIFY(!panel.isVisible());
        QTest::qWait(PanelWindow::kReopenGuardMs + 50);
        panel.toggleAt(QRect(100, 5, 22, 22));
        QVERIFY(panel.isVisible());
        panel.toggleAt(QRect(100, 5, 22, 22));
        QVERIFY(!panel.isVisible());

        // Escape closes the popup.
        QTest::qWait(PanelWindow::kReopenGuardMs + 50);
        panel.openAt(QRect(100, 5, 22, 22));
        QVERIFY(panel.isVisible());
        QTest::keyClick(&panel, Qt::Key_Escape);
        QVERIFY(!panel.isVisible());
        QVERIFY(settle(*f.model));

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
        std::thread second([&] {
            SingleInstance other(dir.path());
            role = other.claim();
        });
        QVERIFY(QTest::qWaitFor([&] { return opened.count() == 1; }, 5000));
        second.join();
        QCOMPARE(role, SingleInstance::Role::Secondary);

        // A lock left by a process that is gone does not block the next start.
        QFile::remove(first.socketPath());
        QTemporaryDir other;
        QFile lock(other.filePath("harkline-menubar.lock"));
        QVERIFY(lock.open(QIODevice::WriteOnly));
        lock.write("999999\nharkline-menubar\n" + QSysInfo::machineHostName().toUtf8() + "\n");
        lock.close();
        SingleInstance afterCrash(other.path());
        QCOMPARE(afterCrash.claim(), SingleInstance::Role::Primary);
    }
};

QTEST_MAIN(PanelTest)
#include "tst_ui_panel.moc"
