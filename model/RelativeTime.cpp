#include "RelativeTime.h"

#include <unicode/calendar.h>
#include <unicode/locid.h>
#include <unicode/reldatefmt.h>
#include <unicode/unistr.h>

#include <array>
#include <memory>
#include <string>

namespace harkline {
namespace {

struct Unit
{
    UCalendarDateFields field;
    URelativeDateTimeUnit unit;
};
constexpr std::array kUnits{
    Unit{UCAL_YEAR, UDAT_REL_UNIT_YEAR},         Unit{UCAL_MONTH, UDAT_REL_UNIT_MONTH},
    Unit{UCAL_WEEK_OF_YEAR, UDAT_REL_UNIT_WEEK}, Unit{UCAL_DATE, UDAT_REL_UNIT_DAY},
    Unit{UCAL_HOUR_OF_DAY, UDAT_REL_UNIT_HOUR},  Unit{UCAL_MINUTE, UDAT_REL_UNIT_MINUTE},
    Unit{UCAL_SECOND, UDAT_REL_UNIT_SECOND},
};

// Building a formatter loads locale data; rows are redrawn every second, so keep one per thread
// and locale.
struct Formatters
{
    std::string localeId;
    std::unique_ptr<icu::RelativeDateTimeFormatter> formatter;
    std::unique_ptr<icu::Calendar> calendar;

    bool make(const icu::Locale& locale)
    {
        UErrorCode status = U_ZERO_ERROR;
        formatter = std::make_unique<icu::RelativeDateTimeFormatter>(
            locale, nullptr, UDAT_STYLE_SHORT, UDISPCTX_CAPITALIZATION_NONE, status);
        calendar.reset(icu::Calendar::createInstance(locale, status));
        localeId = locale.getName();
        return U_SUCCESS(status) && calendar;
    }
};

QString phrase(DaemonTime when, DaemonTime now, const icu::Locale& locale)
{
    thread_local Formatters cache;
    if ((!cache.formatter || cache.localeId != locale.getName()) && !cache.make(locale)) {
        cache = Formatters{};
        return {};
    }
    UErrorCode status = U_ZERO_ERROR;
    icu::Calendar& calendar = *cache.calendar;
    calendar.setTime(now.time_since_epoch().count() * 1000.0, status);
    const UDate target = when.time_since_epoch().count() * 1000.0;
    icu::UnicodeString text;
    // Each difference moves the calendar on by what it counted, so the first unit that is not
    // zero is the largest one, with the remainder left to the smaller units.
    for (const Unit& unit : kUnits) {
        const int32_t difference = calendar.fieldDifference(target, unit.field, status);
        if (U_FAILURE(status))
            return {};
        if (difference != 0) {
            cache.formatter->formatNumeric(difference, unit.unit, text, status);
            break;
        }
    }
    if (text.isEmpty())
        cache.formatter->format(UDAT_DIRECTION_PLAIN, UDAT_ABSOLUTE_NOW, text, status);
    if (U_FAILURE(status))
        return {};
    return QString(reinterpret_cast<const QChar*>(text.getBuffer()), text.length());
}

// The interface is in English only, so the phrase is too; the region still picks the regional
// English ("5 min ago" in Germany or Britain, "5 min. ago" in the United States) and its digits
// ("1.234 days ago" in Germany).
icu::Locale englishFor(const icu::Locale& locale)
{
    return icu::Locale("en", locale.getCountry());
}

} // namespace

QString relativeTimePhrase(DaemonTime when, DaemonTime now)
{
    return phrase(when, now, englishFor(icu::Locale::getDefault()));
}

QString relativeTimePhrase(DaemonTime when)
{
    return relativeTimePhrase(when, DaemonTime(std::chrono::system_clock::now()));
}

QString relativeTimePhrase(DaemonTime when, DaemonTime now, const QString& localeId)
{
    return phrase(when, now, englishFor(icu::Locale(localeId.toLatin1().constData())));
}

} // namespace harkline
