#include "StatusSymbol.h"

#include <algorithm>

namespace harkline {

QString statusSymbol(const std::optional<DaemonStatus>& status,
                     const std::vector<ClaudeSession>& sessions)
{
    if (!status)
        return QStringLiteral("bell.slash");
    // The daemon's own count decides first; the sessions are looked at only when it says none.
    if (status->pending > 0)
        return QStringLiteral("bell.badge");
    const bool waiting = std::any_of(sessions.begin(), sessions.end(),
                                     [](const ClaudeSession& s) { return s.state == "waiting"; });
    return waiting ? QStringLiteral("bell.badge") : QStringLiteral("bell");
}

} // namespace harkline
