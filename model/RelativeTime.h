#pragma once

#include "Records.h"

#include <QString>

namespace harkline {

// How long ago (or how far ahead) `when` is, as the companion and harklinectl both say it:
// ICU's short style in the current locale ("5 min. ago", "vor 5 Min.", "in 1 hr."), counted in
// the largest calendar unit that is not zero (year, month, week, day, hour, minute, second) and
// truncated, so 90 minutes is "1 hr. ago" and 13 days "1 wk. ago". Less than a second either
// way is "now": ICU would say "in 0 sec.".
QString relativeTimePhrase(DaemonTime when, DaemonTime now);

// Against the system clock, as views do at each drawing.
QString relativeTimePhrase(DaemonTime when);

// The same in the locale `localeId` ("de", "en_US"), for tests and callers with a locale of
// their own.
QString relativeTimePhrase(DaemonTime when, DaemonTime now, const QString& localeId);

} // namespace harkline
