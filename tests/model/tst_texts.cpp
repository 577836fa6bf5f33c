// The texts the companion builds for people: daemon text made inert, and the relative time
// phrase of session rows and phones, one row per unit and around the points where the unit
// changes, always in English whatever the locale.

#include "DisplayText.h"
#include "RelativeTime.h"

#include <QTest>

using namespace harkline;
using namespace std::chrono;

class TextsTest : public QObject
{
    Q_OBJECT

    // A Tuesday in November, far from daylight-saving changes in any zone.
    const DaemonTime now = DaemonTime(seconds(1'700'000'000));

private slots:
    void inert()
    {
        const QString fsi(QChar(0x2068)), pdi(QChar(0x2069)), bad(QChar(0xFFFD));
        struct Row
        {
            const char* in;
            QString one;
            QString many;
        };
        for (const Row& row : {
                 Row{"plain", "plain", "plain"},
                 // Qt's alternative-text separator, other C1, C0 and DEL: visible marks.
                 Row{"x\u009cApproved", "x" + bad + "Approved", "x" + bad + "Approved"},
                 Row{"a\u0085b\u0080c\u001bd\u007fe", "a b" + bad + "c" + bad + "d" + bad + "e",
                     "a\nb" + bad + "c" + bad + "d" + bad + "e"},
                 // Layout whitespace: one break per CR LF, tabs as spaces.
                 Row{"1\r\n2\r3\u20284\t5\r\n", "1 2 3 4 5 ", "1\n2\n3\n4 5\n"},
                 // Overrides, embeddings and isolates cannot leak out.
                 Row{"ab\u202e:8080\u2069\u202a\u2066x", "ab:8080x", "ab:8080x"},
             }) {
            QCOMPARE(inertText(std::string_view(row.in), TextLines::One), row.one);
            QCOMPARE(inertText(std::string_view(row.in), TextLines::Many), row.many);
        }
        QCOMPARE(daemonText("Pixel"), fsi + "Pixel" + pdi);
        QCOMPARE(daemonText(""), QString());
    }

    void phrase()
    {
        struct Row
        {
            double offset; // seconds, negative for the past
            const char* en;
        };
        for (const Row& row :
             {Row{0.0, "now"}, Row{-0.9, "now"}, Row{0.4, "now"}, // daemon clock a little ahead
              Row{-59.9, "59 sec. ago"}, Row{-300.0, "5 min. ago"}, Row{-5400.0, "1 hr. ago"},
              Row{-3 * 86400.0, "3 days ago"}, Row{-13 * 86400.0, "1 wk. ago"},
              Row{-45 * 86400.0, "1 mo. ago"}, Row{-400 * 86400.0, "1 yr. ago"},
              Row{3600.0, "in 1 hr."}}) {
            const DaemonTime when = now + duration<double>(row.offset);
            QCOMPARE(relativeTimePhrase(when, now, "en_US"), QString(row.en));
        }
        // The interface is English: a German locale keeps only its region's way of writing it.
        // Without a locale, the environment's: main() below sets LC_ALL before ICU reads it.
        QCOMPARE(relativeTimePhrase(now - minutes(5), now, "de_DE"), "5 min ago");
        QCOMPARE(relativeTimePhrase(now - hours(2), now), "2 hr ago");
    }
};

int main(int argc, char** argv)
{
    qputenv("LC_ALL", "de_DE.UTF-8");
    TextsTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_texts.moc"
