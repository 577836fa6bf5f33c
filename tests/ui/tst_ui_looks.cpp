// The shared pieces: the section caption, and the symbols (all present,
// tinted, drawn at any size; the tray bells told apart by shape and readable on any panel).

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

int opaquePixels(const QImage& image)
{
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            n += qAlpha(image.pixel(x, y)) > 128;
    return n;
}

// Pixels that stand out from the background by at least half the range of grey.
int contrasting(const QImage& image, QColor background)
{
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            n += std::abs(qGray(image.pixel(x, y)) - qGray(background.rgb())) > 128;
    return n;
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
        QVERIFY(title.font().pointSizeF() < QApplication::font().pointSizeF() ||
                title.font().pointSizeF() < 10);
        QVERIFY(title.font().weight() >= QFont::DemiBold);
    }

    void everySymbolIsDrawnInItsTint()
    {
        const QColor tint(0x12, 0x9a, 0x3c);
        for (const char* name :
             {"bell", "bell.badge", "bell.slash", "exclamationmark.bubble.fill", "ellipsis.circle",
              "arrow.triangle.2.circlepath", "exclamationmark.circle.fill", "stop.circle",
              "checkmark.circle.fill", "iphone", "trash", "qrcode"}) {
            QVERIFY2(looks::hasSymbol(name), name);
            const QIcon icon = looks::symbol(name, tint);
            QVERIFY2(!icon.isNull(), name);
            const QImage small = render(icon, 16);
            const QImage large = render(icon, 128);
            QVERIFY2(opaquePixels(small) > 10, name);
            // Drawn again at the larger size, not blown up: the covered share stays about the
            // same while the pixel count grows with the area.
            const double smallShare = opaquePixels(small) / 256.0;
            const double largeShare = opaquePixels(large) / 16384.0;
            QVERIFY2(std::abs(smallShare - largeShare) < 0.12, name);
            // The glyph's solid pixels are the tint (the badge's own orange aside).
            int tinted = 0, solid = 0;
            for (int y = 0; y < 128; ++y)
                for (int x = 0; x < 128; ++x) {
                    const QRgb px = large.pixel(x, y);
                    if (qAlpha(px) == 255) {
                        ++solid;
                        tinted += QColor(px) == tint;
                    }
                }
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
            QImage mask = render(icon, 22).convertToFormat(QImage::Format_Alpha8);
            masks << mask;
            // Readable on a light and on a dark panel.
            for (QColor panel : {QColor(Qt::white), QColor(0xf0, 0xf0, 0xf0), QColor(Qt::black),
                                 QColor(0x30, 0x30, 0x30)})
                QVERIFY2(contrasting(render(icon, 22, panel), panel) > 40,
                         qPrintable(name + " on " + panel.name()));
        }
        // Shapes, not colours: the coverage masks differ by many pixels pairwise.
        for (int i = 0; i < masks.size(); ++i)
            for (int j = i + 1; j < masks.size(); ++j) {
                int differing = 0;
                for (int y = 0; y < 22; ++y)
                    for (int x = 0; x < 22; ++x)
                        differing += std::abs(qAlpha(masks[i].pixel(x, y)) -
                                              qAlpha(masks[j].pixel(x, y))) > 128;
                QVERIFY2(differing > 20, qPrintable(names[i] + " vs " + names[j]));
            }
    }

    void coloursFollowLightAndDark()
    {
        QPalette light;
        light.setColor(QPalette::Window, QColor(0xf6, 0xf6, 0xf6));
        light.setColor(QPalette::WindowText, Qt::black);
        QPalette dark;
        dark.setColor(QPalette::Window, QColor(0x24, 0x24, 0x24));
        dark.setColor(QPalette::WindowText, Qt::white);
        QVERIFY(!looks::isDark(light));
        QVERIFY(looks::isDark(dark));
        for (SystemColor c : {SystemColor::Blue, SystemColor::Orange, SystemColor::Gray,
                              SystemColor::Green, SystemColor::Red})
            QVERIFY(looks::color(c, light) != looks::color(c, dark));
        // Secondary text is dimmer than primary, on both.
        for (const QPalette& p : {light, dark}) {
            const int window = qGray(p.color(QPalette::Window).rgb());
            const int primary =
                std::abs(qGray(looks::color(SystemColor::Primary, p).rgb()) - window);
            const int secondary =
                std::abs(qGray(looks::color(SystemColor::Secondary, p).rgb()) - window);
            QVERIFY(secondary < primary && secondary > 60);
        }
    }
};

QTEST_MAIN(LooksTest)
#include "tst_ui_looks.moc"
