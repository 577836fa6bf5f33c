#pragma once

#include "Json.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace harkline {

// Seconds since the Unix epoch with the fraction kept: the daemon's times are milliseconds that
// may carry a fraction, and two records differ when their times differ by half a millisecond.
using DaemonTime =
    std::chrono::time_point<std::chrono::system_clock, std::chrono::duration<double>>;

// The records below are built from one reply object each. Their constructors never fail: a
// member that is missing, null or of another type than expected leaves the field's default, and
// an argument that is not an object gives a record of defaults. Members they do not know are
// ignored.

struct DaemonStatus
{
    std::string name;
    std::int64_t port = 0;
    std::vector<std::string> hosts;
    std::int64_t devices = 0; // paired phones, as counted by the daemon
    std::int64_t connected = 0;
    std::int64_t pending = 0;

    DaemonStatus() = default;
    explicit DaemonStatus(const Json& object);
    bool operator==(const DaemonStatus&) const = default;
};

struct ClaudeSession
{
    std::string id;
    std::string project;
    std::string title;
    std::string state;
    bool listening = false;
    DaemonTime lastActive{};
    std::string lastText;
    std::int64_t queued = 0;

    ClaudeSession() = default;
    explicit ClaudeSession(const Json& object);
    bool operator==(const ClaudeSession&) const = default;
};

struct PairedDevice
{
    std::string id;
    std::string name;
    DaemonTime paired{};

    PairedDevice() = default;
    explicit PairedDevice(const Json& object);
    bool operator==(const PairedDevice&) const = default;
};

} // namespace harkline
