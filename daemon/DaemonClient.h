#pragma once

#include "Json.h"
#include "Records.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace harkline {

// The only way to talk to the daemon: one Unix-socket connection per request, one JSON object
// written with a newline, one JSON object read back, the connection closed. No state is kept
// between calls, so any number of exchanges may run at once on different threads. Every call
// blocks; never call one on the main thread.
class DaemonClient
{
public:
    DaemonClient() = delete;

    struct NotRunning : std::exception
    {
        const char* what() const noexcept override { return "daemon not running"; }
    };
    struct BadReply : std::exception
    {
        const char* what() const noexcept override { return "bad reply from daemon"; }
    };

    // Paths of 104 bytes or more do not fit a BSD sockaddr_un; the daemon then listens in /tmp.
    static constexpr std::size_t kMaxPathBytes = 103;
    static constexpr int kTimeout = 3;
    static constexpr int kSessionsTimeout = 15;
    static constexpr std::size_t kReadChunk = 65536;
    // The most reply bytes an exchange buffers: three times a list of 10,000 sessions (about
    // 5.4 MB). A daemon sending more gets BadReply at once, never our memory.
    static constexpr std::size_t kMaxReplyBytes = 16 * 1024 * 1024;

    // Computed anew for every request, from HOME (or the password database) and USER / LOGNAME.
    static std::string socketPath();

    // The raw exchange. Throws NotRunning, BadReply, or the JSON writer's own error when the
    // request cannot be serialised. Returns the reply object, whatever its "ok".
    // The time-out bounds each blocking step and also the whole reply: a daemon that trickles
    // bytes cannot hold the calling thread for longer than that.
    static Json request(const Json& request, std::chrono::milliseconds timeout);
    static Json request(const Json& request, int timeoutSeconds)
    {
        return DaemonClient::request(request, std::chrono::seconds(timeoutSeconds));
    }

    // The exchange as every caller wants it: the reply when it arrived and says "ok": true,
    // nothing on any failure. Never throws.
    static std::optional<Json> ok(const Json& request, std::chrono::milliseconds timeout) noexcept;
    static std::optional<Json> ok(const Json& request, int timeoutSeconds) noexcept
    {
        return ok(request, std::chrono::seconds(timeoutSeconds));
    }

    // Only a daemon run by our own user may answer: anyone can create a socket at the /tmp
    // fallback path and could otherwise feed us a forged pairing payload.
    static bool peerAllowed(uid_t peer, uid_t self) noexcept { return peer == self; }

    // --- The command table: each command's request and time-out, and its reply readers. ---

    struct Command
    {
        Json request;
        int timeoutSeconds;
    };
    static Command status();
    static Command devices();
    static Command sessions();
    static Command pair();
    static Command revoke(const std::string& deviceId);
    static Command emitTest(); // the fixed test notification

    static std::optional<Json> ok(const Command& command) noexcept
    {
        return ok(command.request, command.timeoutSeconds);
    }

    struct PairingOffer
    {
        std::string payload;
        std::int64_t expiresIn = kDefaultExpiry;
        bool operator==(const PairingOffer&) const = default;
    };
    static constexpr std::int64_t kDefaultExpiry = 300;

    // Each reader takes the reply of ok(...), none included. A list member that is missing, not
    // an array, or holds anything but objects gives the empty list.
    static std::vector<PairedDevice> devicesFrom(const std::optional<Json>& reply);
    static std::vector<ClaudeSession> sessionsFrom(const std::optional<Json>& reply);
    // None when the reply is none or its "qr" is not a non-empty string.
    static std::optional<PairingOffer> offerFrom(const std::optional<Json>& reply);
    // "connected" of a status reply; 0 when absent, mistyped or when there is no reply.
    static std::int64_t connectedFrom(const std::optional<Json>& reply);
};

} // namespace harkline
