// The relative time phrase of session rows and phones, in two locales, one row per unit and
// around the points where the unit changes.

#include "RelativeTime.h"

#include <QTest>

using namespace harkline;
using namespace std::chrono;

class RelativeTimeTest : public QObject
{
    Q_OBJECT

    // A Tuesday in November, far from daylight-saving changes in any zone.
    const DaemonTime now = DaemonTime(seconds(1'700'000'000));

private slots:
    void phrase()
    {
        struct Row
        {
            double offset; // seconds, negative for the past
            const char* en;
            const char* de;
        };
        for (const Row& row :
             {Row{0.0, "now", "jetzt"}, Row{-0.9, "now", "jetzt"},
              Row{0.4, "now", "jetzt"}, // daemon clock a little ahead
              Row{-59.9, "59 sec. ago", "vor 59 Sek."}, Row{-300.0, "5 min. ago", "vor 5 Min."},
              Row{-5400.0, "1 hr. ago", "vor 1 Std."},
              Row{-3 * 86400.0, "3 days ago", "vor 3 Tagen"},
              Row{-13 * 86400.0, "1 wk. ago", "vor 1 Woche"},
              Row{-45 * 86400.0, "1 mo. ago", "vor 1 Monat"},
              Row{-400 * 86400.0, "1 yr. ago", "vor 1 Jahr"},
              Row{3600.0, "in 1 hr.", "in 1 Std."}}) {
            const DaemonTime when = now + duration<double>(row.offset);
            QCOMPARE(relativeTimePhrase(when, now, "en_US"), QString(row.en));
            QCOMPARE(relativeTimePhrase(when, now, "de_DE"), QString(row.de));
        }
        // Without a locale, the environment's: main() below sets LC_ALL before ICU reads it.
        QCOMPARE(relativeTimePhrase(now - minutes(5), now), "vor 5 Min.");
    }
};

int main(int argc, char** argv)
{
    qputenv("LC_ALL", "de_DE.UTF-8");
    RelativeTimeTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_relative_time.moc"
