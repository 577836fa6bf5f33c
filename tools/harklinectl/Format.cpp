#include "Format.h"

#include <algorithm>
#include <cmath>
#include <ctime>

namespace harkline::ctl {
namespace {

constexpr std::string_view kSeparator = " · ";

std::string span(long long seconds)
{
    if (seconds < 60)
        return std::to_string(seconds) + " sec";
    if (seconds < 3600)
        return std::to_string(seconds / 60) + " min";
    if (seconds < 86400)
        return std::to_string(seconds / 3600) + " hr";
    const long long days = seconds / 86400;
    return std::to_string(days) + (days == 1 ? " day" : " days");
}

std::string orElse(std::string text, std::string_view fallback)
{
    return text.empty() ? std::string(fallback) : text;
}

} // namespace

std::string relativeTime(DaemonTime when, DaemonTime now)
{
    if (when.time_since_epoch().count() == 0)
        return "unknown";
    const double delta = (now - when).count();
    // Our clock and the daemon's may disagree by a moment; that is not "in 1 sec".
    if (delta > -2.0 && delta < 1.0)
        return "just now";
    if (delta < 0)
        return "in " + span(static_cast<long long>(std::floor(-delta)));
    return span(static_cast<long long>(std::floor(delta))) + " ago";
}

std::string oneLine(std::string_view text)
{
    std::string line(text);
    for (char& c : line)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            c = ' ';
    return line;
}

std::vector<std::string> statusLines(const DaemonStatus& status)
{
    std::string hosts;
    for (const std::string& host : status.hosts)
        hosts += (hosts.empty() ? "" : ", ") + oneLine(host);
    return {
        "name:            " + orElse(oneLine(status.name), "(none)"),
        "port:            " + std::to_string(status.port),
        "hosts:           " + orElse(hosts, "(none)"),
        "phones:          " + std::to_string(status.connected) + " connected, " +
            std::to_string(status.devices) + " paired",
        "waiting prompts: " + std::to_string(status.pending),
    };
}

std::string sessionLine(const ClaudeSession& session, DaemonTime now)
{
    std::string state = orElse(oneLine(session.state), "?");
    // The daemon's states are short ASCII words: line them up.
    state.resize(std::max<std::size_t>(state.size() + 2, 9), ' ');
    const std::string project = oneLine(session.project);
    std::string line = state + orElse(oneLine(session.title), orElse(project, "(untitled)"));
    // A session without a title is already named by its project; do not say it twice.
    if (!session.title.empty() && !project.empty())
        line += std::string(kSeparator) + project;
    line += std::string(kSeparator) + relativeTime(session.lastActive, now);
    if (session.listening)
        line += std::string(kSeparator) + "phone can reply";
    if (session.queued > 0)
        line += std::string(kSeparator) + std::to_string(session.queued) + " queued";
    return line;
}

std::string deviceLine(const PairedDevice& device, DaemonTime now)
{
    std::string paired = "paired at an unknown time";
    if (device.paired.time_since_epoch().count() != 0) {
        paired = "paired " + relativeTime(device.paired, now);
        const auto seconds =
            static_cast<std::time_t>(std::floor(device.paired.time_since_epoch().count()));
        std::tm local{};
        char date[32];
        if (localtime_r(&seconds, &local) &&
            std::strftime(date, sizeof date, "%Y-%m-%d %H:%M", &local) > 0)
            paired += std::string(" (") + date + ")";
    }
    return orElse(oneLine(device.name), "(unnamed phone)") + std::string(kSeparator) + paired +
           std::string(kSeparator) + orElse(oneLine(device.id), "(no id)");
}

} // namespace harkline::ctl
