#pragma once

#include "Records.h"

#include <QString>

namespace harkline {

// How long ago (or how far ahead) `when` is, as the companion and harklinectl both say it:
// ICU's short style in English, the interface's language, as written in the current locale's
// region ("5 min. ago" in en_US, "5 min ago" in de_DE or en_GB, "in 1 hr."), counted in
// the largest calendar unit that is not zero (year, month, week, day, hour, minute, second) and
// truncated, so 90 minutes is "1 hr. ago" and 13 days "1 wk. ago". Less than a second either
// way is "now": ICU would say "in 0 sec.".
QString relativeTimePhrase(DaemonTime when, DaemonTime now);

// Against the system clock, as views do at each drawing.
QString relativeTimePhrase(DaemonTime when);

// The same for the region of the locale `localeId` ("de_DE", "en_US"), for tests and callers
// with a locale of their own.
QString relativeTimePhrase(DaemonTime when, DaemonTime now, const QString& localeId);

} // namespace harkline
