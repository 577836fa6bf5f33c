#pragma once

#include <QString>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace harkline {

// Unpairing a phone and sending a test notification: the blocking work and what the user is told
// afterwards, shared by the companion (AppModel runs the work off the main thread) and
// harklinectl (which runs it in place).

// Asks the daemon to forget the phone; true when it said it did.
bool revokeWork(const std::string& deviceId);
// "Removed Work phone." / "Could not remove Work phone.", with the daemon's name for the phone
// made inert and isolated, so that it can neither rewrite nor reorder the sentence around it.
QString revokeNotice(std::string_view name, bool removed);

// Sends the fixed test notification, then asks how many phones are connected to receive it.
// None when the notification could not be sent; 0 when the count could not be read.
std::optional<std::int64_t> sendTestWork();
// "The service is not running.", "Sent, but no phone is connected right now.",
// "Test notification sent to 3 phones."
QString sendTestNotice(std::optional<std::int64_t> connected);

} // namespace harkline
