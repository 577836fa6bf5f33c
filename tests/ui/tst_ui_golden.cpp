// The panel in fixed states, drawn offscreen and read as a screen reader reads it, against
// golden/. HARKLINE_UPDATE_GOLDEN=1 writes them anew.

#include "ActionsMenu.h"
#include "HeaderView.h"
#include "Looks.h"
#include "MenuView.h"
#include "ModelKit.h"
#include "PairingView.h"
#include "PanelWindow.h"
#include "PhoneRow.h"
#include "PhonesView.h"
#include "SessionsView.h"

#include <QAccessible>
#include <QApplication>
#include <QDir>
#include <QMetaEnum>
#include <QPainter>
#include <QPushButton>
#include <QStyle>
#include <QStyleFactory>
#include <QToolButton>

#include <array>

using namespace harkline;
using namespace harkline::test;

namespace {

const bool kUpdate = qEnvironmentVariableIntValue("HARKLINE_UPDATE_GOLDEN") == 1;

// Times far from a unit's boundary, so that the seconds a run takes never change a phrase.
Json aged(Json s, double minutes)
{
    s["last_ts"] = nowMs() - minutes * 60e3;
    return s;
}

void fillPanel(ScriptedDaemon& d)
{
    d.status.update({{"name", "desk"}, {"connected", 1}, {"devices", 2}, {"pending", 1}});
    d.devices = Json::array({phone("p1", "<i>Pixel</i> 8"), phone("p2", "Léa’s iPhone")});
    Json busy = aged(session("s1", "waiting", "Fix the flaky build", "harkline"), 150);
    busy["listening"] = true;
    busy["queued"] = 2;
    busy["last_text"] = "Shall I run the whole suite again?\nIt writes "
                        "build/tests/ui/golden/render-of-the-panel-with-everything-unfolded.png.";
    d.sessions = Json::array({busy, aged(session("s2", "working", "", "notes"), 30),
                              aged(session("s3", "ended", "Old chat", "web"), 3 * 1440)});
}

QPalette themed(QRgb window, QRgb button, QRgb highlight, QRgb text)
{
    QPalette p{QColor(button), QColor(window)};
    p.setColor(QPalette::Highlight, QColor(highlight));
    p.setColor(QPalette::WindowText, QColor(text));
    p.setColor(QPalette::ButtonText, QColor(text));
    return p;
}

QString line(QAccessibleInterface* node, int depth)
{
    const QAccessible::State s = node->state();
    QStringList states;
    const quint64 on[] = {s.focusable, s.focused,       s.expandable, s.expanded,
                          s.checkable, s.checked,       s.invisible,  s.disabled,
                          s.selected,  s.defaultButton, s.hasPopup,   s.multiLine};
    const QStringList names = QString("focusable focused expandable expanded checkable checked "
                                      "invisible disabled selected default popup multiline")
                                  .split(' ');
    for (int i = 0; i < names.size(); ++i)
        if (on[i])
            states << names[i];
    const QStringList actions =
        node->actionInterface() ? node->actionInterface()->actionNames() : QStringList();
    QString out = QString(depth * 2, ' ') +
                  QMetaEnum::fromType<QAccessible::Role>().valueToKey(node->role()) + " \"" +
                  node->text(QAccessible::Name) + "\" \"" + node->text(QAccessible::Description) +
                  "\" [" + states.join(' ') + "] {" + actions.join(' ') + "}\n";
    for (int i = 0; i < node->childCount(); ++i)
        out += line(node->child(i), depth + 1);
    return out;
}

// Fails unless `text` and `shown` are golden/<name>.txt and .png; leaves the actual ones here.
void compare(const QString& name, const QString& text, const QImage& shown)
{
    const QString golden = GOLDEN "/" + name, actual = QDir::current().filePath(name + ".actual");
    const QImage got = shown.convertToFormat(QImage::Format_RGB32);
    const auto write = [&](const QString& to) {
        QFile file(to + ".txt");
        QVERIFY2(file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) >= 0 &&
                     got.save(to + ".png"),
                 qPrintable("cannot write " + to));
    };
    if (kUpdate)
        return write(golden);
    QFile file(golden + ".txt");
    const bool sameText = file.open(QIODevice::ReadOnly) && file.readAll() == text.toUtf8();
    const bool samePicture = QImage(golden + ".png").convertToFormat(QImage::Format_RGB32) == got;
    if (sameText && samePicture)
        return;
    write(actual);
    QFAIL(qPrintable(
        QStringLiteral("%1.txt %2, %1.png %3: see %4.txt and .png")
            .arg(golden, sameText ? "same" : "differs", samePicture ? "same" : "differs", actual)));
}

void compare(const QString& name, QWidget& widget)
{
    compare(name, line(QAccessible::queryAccessibleInterface(&widget), 0), widget.grab().toImage());
}

} // namespace

class GoldenTest : public QObject
{
    Q_OBJECT

    using Setup = std::function<void(UiFixture&, ui::MenuView&)>;

    // The model's offer, at a fixed moment `left` seconds before it lapses.
    static Setup offer(std::optional<std::string> pairedWith, int left = 100)
    {
        return [=](UiFixture& f, ui::MenuView& menu) {
            f.model->startPairing();
            QVERIFY(settle(*f.model) && menu.pairingView());
            Pairing fixed = *f.model->pairing();
            fixed.expires = DaemonTime(std::chrono::seconds(1'800'000'000));
            fixed.image = fixed.image.copy(); // a new code to the view, which reads its expiry
            menu.pairingView()->setClock(
                [=] { return fixed.expires - std::chrono::seconds(left); });
            menu.pairingView()->setPairing(fixed);
            fixed.pairedWith = pairedWith;
            menu.pairingView()->setPairing(fixed);
        };
    }

private slots:
    void panel_data()
    {
        QTest::addColumn<Setup>("setup");
        QTest::addColumn<QPalette>("palette");
        const QPalette fusion = QApplication::style()->standardPalette();
        QTest::newRow("full") << Setup([](UiFixture&, ui::MenuView&) {}) << fusion;
        // Rings that stand out on a dark theme and where the highlight is 2.3:1 on the window.
        const Setup ring = [](UiFixture&, ui::MenuView& menu) {
            menu.phonesView()->row("p1")->trashButton()->setFocus(Qt::TabFocusReason);
        };
        QTest::newRow("dark") << ring << themed(0x353535, 0x353535, 0x2a82da, 0xffffff);
        QTest::newRow("pale-highlight") << ring << themed(0xeff0f1, 0xfcfcfc, 0x3daee9, 0x000000);
        QTest::newRow("unfolded-confirming") << Setup([](UiFixture& f, ui::MenuView& menu) {
            menu.sessionsView()->toggle("s1");
            menu.phonesView()->row("p2")->trashButton()->click();
            QVERIFY(f.refresh()); // the same views keep their state across a reload
        }) << fusion;
        // Views that leave and come back start afresh.
        QTest::newRow("views-return") << Setup([](UiFixture& f, ui::MenuView& menu) {
            menu.sessionsView()->toggle("s1");
            menu.phonesView()->row("p2")->trashButton()->click();
            f.model->startPairing();
            QVERIFY(settle(*f.model) && menu.pairingView());
            f.model->stopPairing();
        }) << fusion;
        // An offer is not shown without a status.
        QTest::newRow("offer-without-status") << Setup([](UiFixture& f, ui::MenuView&) {
            f.model->startPairing();
            QVERIFY(settle(*f.model));
            f.daemon.set([](ScriptedDaemon& d) { d.running = false; });
            QVERIFY(f.refresh() && f.model->pairing());
        }) << fusion;
        QTest::newRow("focus-ring") << Setup([](UiFixture&, ui::MenuView& menu) {
            menu.phonesView()->pairButton()->setFocus(Qt::TabFocusReason);
        }) << fusion;
        QTest::newRow("list-focus") << Setup([](UiFixture&, ui::MenuView& menu) {
            menu.sessionsView()->setFocus(Qt::TabFocusReason);
            menu.sessionsView()->setCurrentRow(1);
        }) << fusion;
        QTest::newRow("not-running") << Setup([](UiFixture& f, ui::MenuView&) {
            f.daemon.set([](ScriptedDaemon& d) { d.running = false; });
            QVERIFY(f.refresh());
            f.desktop.service->succeeds = false;
            f.model->startService(false);
            QVERIFY(QTest::qWaitFor([&] { return f.model->notice().has_value(); }, 8000));
        }) << fusion;
        // Daemon text that tries to rewrite the panel: controls, direction overrides, markup.
        QTest::newRow("hostile") << Setup([](UiFixture& f, ui::MenuView& menu) {
            f.daemon.set([](ScriptedDaemon& d) {
                d.status.update({{"name", "<b>desk</b>\u009cHijacked %2"},
                                 {"hosts", {"\u202eevil.local", "b.local"}},
                                 {"pending", 2}});
                d.devices = Json::array({phone("p1", "Pixel\u009cX\u202e")});
                Json s = session("s", "working", "x\u009cApproved: deploy to prod", "\u202eproj");
                s["last_text"] = "bell\u0007\nnext";
                d.sessions = Json::array({aged(s, 10)});
            });
            QVERIFY(f.refresh());
            menu.sessionsView()->toggle("s");
        }) << fusion;
        // Nothing to show (no hosts, phones, sessions or prompts) but a notice long enough to wrap.
        QTest::newRow("quiet") << Setup([](UiFixture& f, ui::MenuView& menu) {
            f.daemon.set([](ScriptedDaemon& d) {
                d.status.update({{"hosts", Json::array()}, {"pending", 0}});
                d.devices = d.sessions = Json::array();
            });
            QVERIFY(f.refresh());
            f.desktop.loginItem->failure = QString(120, QChar('x')).replace(50, 1, " ");
            menu.header()->actionsMenu()->openAtLoginAction()->trigger();
        }) << fusion;
        QTest::newRow("pairing") << offer(std::nullopt) << fusion;
        QTest::newRow("paired") << offer("Pixel 8") << fusion;
        QTest::newRow("expired") << offer(std::nullopt, -1) << fusion;
    }

    void panel()
    {
        QFETCH(Setup, setup);
        QFETCH(QPalette, palette);
        QApplication::setPalette(palette);
        UiFixture f;
        f.daemon.set(fillPanel);
        auto* menu = new ui::MenuView(f.model.get());
        app::PanelWindow panel(menu);
        panel.openAt(QRect(100, 5, 22, 22));
        QApplication::setActiveWindow(&panel);
        QVERIFY(QTest::qWaitForWindowActive(&panel));
        QVERIFY(f.refresh());
        setup(f, *menu);
        QVERIFY(settle(*f.model) && settled());

        compare(QTest::currentDataTag(), panel);
    }

    // The tray's bells stand out on light and dark panels; an unknown symbol draws nothing. (The
    // panel's own symbols are in its pictures.)
    void symbols()
    {
        QVERIFY(ui::looks::symbol("no.such.symbol", Qt::black).isNull());
        QImage sheet(3 * 26, 2 * 26, QImage::Format_RGB32);
        QPainter painter(&sheet);
        for (int row = 0; row < 2; ++row) {
            painter.fillRect(0, row * 26, sheet.width(), 26, row ? Qt::black : Qt::white);
            for (int i = 0; i < 3; ++i)
                ui::looks::traySymbol(std::array{"bell", "bell.badge", "bell.slash"}[i])
                    .paint(&painter, 2 + i * 26, row * 26 + 2, 22, 22);
        }
        painter.end();
        compare("symbols", QString(), sheet);
    }

    void actionsMenu_data()
    {
        QTest::addColumn<bool>("running");
        QTest::newRow("menu") << true;
        QTest::newRow("menu-down") << false; // only the test notification out of reach
    }

    void actionsMenu()
    {
        QFETCH(bool, running);
        UiFixture f;
        f.daemon.set([&](ScriptedDaemon& d) { d.running = running; });
        QVERIFY(f.refresh());
        f.desktop.loginItem->on = running;
        ui::ActionsMenu menu(f.model.get());
        menu.popup(QPoint(10, 10));
        QVERIFY(QTest::qWaitForWindowExposed(&menu));
        menu.setActiveAction(menu.openLogAction());
        compare(QTest::currentDataTag(), menu);
    }
};

int main(int argc, char** argv)
{
    // One font, one scale and the program's own style, whatever the machine's settings.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("TZ", "UTC");
    qputenv("QT_FONT_DPI", "96");
    qputenv("QT_SCALE_FACTOR", "1");
    QApplication app(argc, argv);
    QApplication::setFont(QFont("DejaVu Sans", 10));
    QApplication::setStyle(ui::looks::focusStyle(QStyleFactory::create("Fusion")));
    QApplication::setPalette(QApplication::style()->standardPalette());
    GoldenTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_ui_golden.moc"
