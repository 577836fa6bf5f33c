#pragma once

// The text harklinectl prints for the daemon's records. Pure functions of the record and the
// current time, so the output can be checked without a daemon.

#include "Records.h"

#include <string>
#include <string_view>
#include <vector>

namespace harkline::ctl {

// "just now", "42 sec ago", "2 min ago", "3 hr ago", "1 day ago", "in 5 min" (a daemon clock
// ahead of ours), "unknown" for a missing time (the epoch).
std::string relativeTime(DaemonTime when, DaemonTime now);

// Daemon text made safe for one terminal line: control characters (newlines, escapes) become
// spaces, so a title can neither break the one-line-per-record layout nor drive the terminal.
std::string oneLine(std::string_view text);

// "name: ...", "port: ...", "hosts: ...", "phones: ...", "waiting prompts: ...".
std::vector<std::string> statusLines(const DaemonStatus& status);

// "waiting  Fix the relay · harkline · 2 min ago · phone can reply · 2 queued"
std::string sessionLine(const ClaudeSession& session, DaemonTime now);

// "Pixel 8 · paired 12 days ago (2024-05-01 14:03) · 7c1e5a90b3d24f68"
std::string deviceLine(const PairedDevice& device, DaemonTime now);

} // namespace harkline::ctl
