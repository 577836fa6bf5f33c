#pragma once

#include "Records.h"

#include <QString>

namespace harkline::ui {

// "5 min. ago", "in 1 hr.": how far `when` lies from `now`, abbreviated, in the user's locale
// (ICU's default locale, which follows LANG/LC_*). Callers compute it at each drawing, against
// the current time.
//
// The largest unit that fits at least once is used, and the count in it is truncated: 90 minutes
// is "1 hr. ago", 59 seconds "59 sec. ago". Less than a second either way reads "now".
QString relativeTime(DaemonTime when, DaemonTime now);
QString relativeTime(DaemonTime when); // against the system clock

} // namespace harkline::ui
