// The relative time phrase of session rows and phones, in two locales, around the points where
// the unit changes.

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
    void phrase_data()
    {
        QTest::addColumn<double>("offset"); // seconds, negative for the past
        QTest::addColumn<QString>("en");
        QTest::addColumn<QString>("de");
        QTest::newRow("same moment") << 0.0 << "now"
                                     << "jetzt";
        QTest::newRow("under a second either way") << -0.9 << "now"
                                                   << "jetzt";
        QTest::newRow("daemon clock a little ahead") << 0.4 << "now"
                                                     << "jetzt";
        QTest::newRow("30 s") << -30.0 << "30 sec. ago"
                              << "vor 30 Sek.";
        QTest::newRow("59.9 s") << -59.9 << "59 sec. ago"
                                << "vor 59 Sek.";
        QTest::newRow("5 min") << -300.0 << "5 min. ago"
                               << "vor 5 Min.";
        QTest::newRow("90 min truncates") << -5400.0 << "1 hr. ago"
                                          << "vor 1 Std.";
        QTest::newRow("2 h") << -7200.0 << "2 hr. ago"
                             << "vor 2 Std.";
        QTest::newRow("3 days") << -3 * 86400.0 << "3 days ago"
                                << "vor 3 Tagen";
        QTest::newRow("13 days") << -13 * 86400.0 << "1 wk. ago"
                                 << "vor 1 Woche";
        QTest::newRow("45 days") << -45 * 86400.0 << "1 mo. ago"
                                 << "vor 1 Monat";
        QTest::newRow("400 days") << -400 * 86400.0 << "1 yr. ago"
                                  << "vor 1 Jahr";
        QTest::newRow("ahead 1 h") << 3600.0 << "in 1 hr."
                                   << "in 1 Std.";
    }
    void phrase()
    {
        QFETCH(double, offset);
        QFETCH(QString, en);
        QFETCH(QString, de);
        const DaemonTime when = now + duration<double>(offset);
        QCOMPARE(relativeTimePhrase(when, now, "en_US"), en);
        QCOMPARE(relativeTimePhrase(when, now, "de_DE"), de);
    }

    void defaultLocaleFollowsTheEnvironment()
    {
        // main() below sets LC_ALL before ICU first reads it.
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
