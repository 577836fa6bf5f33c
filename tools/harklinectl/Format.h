#pragma once

// What harklinectl prints for the daemon's records. Pure functions of the records and the
// current time, so the output can be checked without a daemon.

#include "Json.h"
#include "Records.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace harkline::ctl {

// Daemon text as a terminal line shows it: inert (line breaks are spaces, other controls U+FFFD,
// bidi controls dropped), so a title can neither break the one-line-per-record layout nor drive
// the terminal, and a bidi isolate, so a right-to-left host cannot reverse the port after it.
std::string shown(std::string_view text);
// Inert only, for what people copy (the pairing code) and their own arguments quoted back.
std::string inert(std::string_view text);

// `value` as compact JSON in which the characters that change how text is shown (C1 controls,
// DEL, bidi controls) are \uXXXX escapes: the same data for a JSON reader, nothing for a
// terminal to act on.
std::string jsonText(const Json& value);

// `text` for Pango markup: & < > " ' as entities.
std::string markupEscaped(std::string_view text);

// The companion's relative time phrase ("5 min. ago"), or "unknown" for a time the daemon did
// not send (the epoch).
std::string whenText(DaemonTime when, DaemonTime now);

// "name: ...", "address: ...", "port: ...", "phones: ...", "waiting prompts: ...".
std::vector<std::string> statusLines(const DaemonStatus& status);

// "waiting  Fix the relay · harkline · 2 min. ago · phone can reply · 2 queued"
std::string sessionLine(const ClaudeSession& session, DaemonTime now);

// "Pixel 8 · paired 1 wk. ago (2024-05-01 14:03) · 7c1e5a90b3d24f68"
std::string deviceLine(const PairedDevice& device, DaemonTime now);

// The --json forms. Their member names are an interface for scripts: add, never rename. Times
// are seconds since the Unix epoch, fraction kept.
Json statusJson(const std::optional<DaemonStatus>& status);
Json sessionsJson(const std::vector<ClaudeSession>& sessions);
Json devicesJson(const std::vector<PairedDevice>& devices);

// One line for waybar's custom module ("return-type": "json"): "text" the number of waiting
// prompts ("off" while the daemon does not answer), "tooltip", "class" one of "down", "waiting",
// "quiet", and "alt" the companion's icon name for the same state. waybar reads the text and
// the tooltip as Pango markup, and its "escape" option does not reach the tooltip in every
// version, so the tooltip comes escaped; the other members never hold markup characters.
std::string waybarLine(const std::optional<DaemonStatus>& status,
                       const std::vector<ClaudeSession>& sessions);

} // namespace harkline::ctl
