#include "RelativeTime.h"

#include <unicode/locid.h>
#include <unicode/reldatefmt.h>
#include <unicode/unistr.h>

#include <cmath>
#include <memory>

namespace harkline::ui {

namespace {

struct Unit
{
    double seconds;
    URelativeDateTimeUnit unit;
};

// Months and years by their average lengths: the phrase is a rough distance, not a calendar sum.
constexpr Unit kUnits[] = {
    {365.2425 * 86400, UDAT_REL_UNIT_YEAR},
    {30.436875 * 86400, UDAT_REL_UNIT_MONTH},
    {7 * 86400, UDAT_REL_UNIT_WEEK},
    {86400, UDAT_REL_UNIT_DAY},
    {3600, UDAT_REL_UNIT_HOUR},
    {60, UDAT_REL_UNIT_MINUTE},
};

// One formatter per locale, made on first use. Only the main thread draws, but a formatter is
// cheap to keep and costly to make, so it is remembered rather than built on every row.
icu::RelativeDateTimeFormatter* formatter()
{
    static std::string localeName;
    static std::unique_ptr<icu::RelativeDateTimeFormatter> cached;
    const icu::Locale locale = icu::Locale::getDefault();
    if (!cached || localeName != locale.getName()) {
        UErrorCode status = U_ZERO_ERROR;
        auto made = std::make_unique<icu::RelativeDateTimeFormatter>(
            locale, nullptr, UDAT_STYLE_SHORT, UDISPCTX_CAPITALIZATION_NONE, status);
        if (U_FAILURE(status))
            return nullptr;
        cached = std::move(made);
        localeName = locale.getName();
    }
    return cached.get();
}

QString toQString(const icu::UnicodeString& text)
{
    return QString(reinterpret_cast<const QChar*>(text.getBuffer()), text.length());
}

} // namespace

QString relativeTime(DaemonTime when, DaemonTime now)
{
    const double offset = (when - now).count(); // negative: in the past
    icu::RelativeDateTimeFormatter* fmt = formatter();
    if (!fmt)
        return {};
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString out;
    const double magnitude = std::fabs(offset);
    if (!std::isfinite(offset) || magnitude < 1.0) {
        fmt->format(UDAT_DIRECTION_PLAIN, UDAT_ABSOLUTE_NOW, out, status);
        return U_SUCCESS(status) ? toQString(out) : QString();
    }
    URelativeDateTimeUnit unit = UDAT_REL_UNIT_SECOND;
    double count = std::trunc(magnitude);
    for (const Unit& candidate : kUnits) {
        if (magnitude >= candidate.seconds) {
            unit = candidate.unit;
            count = std::trunc(magnitude / candidate.seconds);
            break;
        }
    }
    fmt->formatNumeric(offset < 0 ? -count : count, unit, out, status);
    return U_SUCCESS(status) ? toQString(out) : QString();
}

QString relativeTime(DaemonTime when)
{
    return relativeTime(when, DaemonTime(std::chrono::system_clock::now()));
}

} // namespace harkline::ui
