// The shared pieces: the section caption, and the symbols (all present, tinted, drawn at any
// size; the tray bells told apart by shape and readable on any panel), light and dark colours.

#include "Looks.h"
#include "SectionTitle.h"

#include <QApplication>
#include <QPainter>
#include <QTest>

using namespace harkline;
using namespace harkline::ui;

namespace {

QImage render(const QIcon& icon, int side, QColor background = Qt::transparent)
{
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(background);
    QPainter painter(&image);
    icon.paint(&painter, image.rect());
    return image;
}

// Pixels of `image` for which `test` holds.
template <class Test> int pixels(const QImage& image, Test test)
{
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            n += test(image.pixel(x, y), x, y);
    return n;
}

int opaque(const QImage& image)
{
    return pixels(image, [](QRgb px, int, int) { return qAlpha(px) > 128; });
}

} // namespace

class LooksTest : public QObject
{
    Q_OBJECT

private slots:
    void sectionTitle()
    {
        SectionTitle title("Sessions");
        QCOMPARE(title.text(), QString("SESSIONS"));
        QCOMPARE(title.textFormat(), Qt::PlainText);
        title.setTitle("Straße");
        QCOMPARE(title.text(), QString("STRASSE")); // full case mapping, not per character
    }

    void everySymbolIsDrawnInItsTint()
    {
        const QColor tint(0x12, 0x9a, 0x3c);
        for (const char* name :
             {"bell", "bell.badge", "bell.slash", "exclamationmark.bubble.fill", "ellipsis.circle",
              "arrow.triangle.2.circlepath", "exclamationmark.circle.fill", "stop.circle",
              "checkmark.circle.fill", "iphone", "trash", "qrcode"}) {
            const QIcon icon = looks::symbol(name, tint);
            QVERIFY2(looks::hasSymbol(name) && !icon.isNull(), name);
            const QImage small = render(icon, 16);
            const QImage large = render(icon, 128);
            QVERIFY2(opaque(small) > 10, name);
            // Drawn again at the larger size, not blown up: the covered share stays about the
            // same while the pixel count grows with the area.
            QVERIFY2(std::abs(opaque(small) / 256.0 - opaque(large) / 16384.0) < 0.12, name);
            // The glyph's solid pixels are the tint (the badge's own orange aside).
            const int solid = pixels(large, [](QRgb px, int, int) { return qAlpha(px) == 255; });
            const int tinted = pixels(
                large, [&](QRgb px, int, int) { return qAlpha(px) == 255 && QColor(px) == tint; });
            QVERIFY2(tinted > solid / 2, name);
        }
        QVERIFY(looks::symbol("no.such.symbol", tint).isNull());
    }

    void trayBellsDifferInShapeAndReadAnywhere()
    {
        const QStringList names{"bell", "bell.badge", "bell.slash"};
        QList<QImage> masks;
        for (const QString& name : names) {
            const QIcon icon = looks::traySymbol(name);
            masks << render(icon, 22);
            for (QColor panel : {QColor(Qt::white), QColor(0xf0, 0xf0, 0xf0), QColor(Qt::black),
                                 QColor(0x30, 0x30, 0x30)}) {
                const int contrasting = pixels(render(icon, 22, panel), [&](QRgb px, int, int) {
                    return std::abs(qGray(px) - qGray(panel.rgb())) > 128;
                });
                QVERIFY2(contrasting > 40, qPrintable(name + " on " + panel.name()));
            }
        }
        // Shapes, not colours: the coverage masks differ by many pixels pairwise.
        for (int i = 0; i < masks.size(); ++i)
            for (int j = i + 1; j < masks.size(); ++j) {
                const int differing = pixels(masks[i], [&](QRgb px, int x, int y) {
                    return std::abs(qAlpha(px) - qAlpha(masks[j].pixel(x, y))) > 128;
                });
                QVERIFY2(differing > 20, qPrintable(names[i] + " vs " + names[j]));
            }
    }

    void coloursFollowLightAndDark()
    {
        QPalette light, dark;
        light.setColor(QPalette::Window, QColor(0xf6, 0xf6, 0xf6));
        light.setColor(QPalette::WindowText, Qt::black);
        dark.setColor(QPalette::Window, QColor(0x24, 0x24, 0x24));
        dark.setColor(QPalette::WindowText, Qt::white);
        QVERIFY(!looks::isDark(light) && looks::isDark(dark));
        for (SystemColor c : {SystemColor::Blue, SystemColor::Orange, SystemColor::Gray,
                              SystemColor::Green, SystemColor::Red})
            QVERIFY(looks::color(c, light) != looks::color(c, dark));
        // Secondary text is dimmer than primary, on both.
        for (const QPalette& p : {light, dark}) {
            const auto contrast = [&](SystemColor c) {
                return std::abs(qGray(looks::color(c, p).rgb()) -
                                qGray(p.color(QPalette::Window).rgb()));
            };
            QVERIFY(contrast(SystemColor::Secondary) < contrast(SystemColor::Primary));
            QVERIFY(contrast(SystemColor::Secondary) > 60);
        }
    }
};

QTEST_MAIN(LooksTest)
#include "tst_ui_looks.moc"
