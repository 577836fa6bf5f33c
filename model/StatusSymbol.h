#pragma once

#include "Records.h"

#include <QString>

#include <optional>
#include <vector>

namespace harkline {

// The one icon that sums up the daemon: "bell.slash" while it does not answer, "bell.badge" when
// a prompt waits for the user (the daemon's count, or a session in state "waiting"), "bell"
// otherwise. The tray icon and harklinectl's status-bar line both show it.
QString statusSymbol(const std::optional<DaemonStatus>& status,
                     const std::vector<ClaudeSession>& sessions);

} // namespace harkline
