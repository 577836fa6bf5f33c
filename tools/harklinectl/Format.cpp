#include "Format.h"

#include "DisplayText.h"
#include "RelativeTime.h"
#include "StatusSymbol.h"

#include <algorithm>
#include <cmath>
#include <ctime>

namespace harkline::ctl {
namespace {

constexpr std::string_view kSeparator = " · ";

std::string orElse(std::string text, std::string_view fallback)
{
    return text.empty() ? std::string(fallback) : text;
}

bool known(DaemonTime when)
{
    return when.time_since_epoch().count() != 0;
}

std::int64_t waitingCount(const DaemonStatus& status, const std::vector<ClaudeSession>& sessions)
{
    if (status.pending > 0)
        return status.pending;
    return std::count_if(sessions.begin(), sessions.end(),
                         [](const ClaudeSession& s) { return s.state == "waiting"; });
}

} // namespace

std::string shown(std::string_view text)
{
    return daemonText(text).toStdString();
}

std::string inert(std::string_view text)
{
    return inertText(text).toStdString();
}

std::string jsonText(const Json& value)
{
    // The writer escapes C0 controls itself and leaves the rest as UTF-8.
    const QString text = QString::fromStdString(value.dump());
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        if (changesDisplay(c.unicode()))
            out += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        else
            out += c;
    }
    return out.toStdString();
}

std::string markupEscaped(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\'':
            out += "&#39;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string whenText(DaemonTime when, DaemonTime now)
{
    return known(when) ? relativeTimePhrase(when, now).toStdString() : "unknown";
}

std::vector<std::string> statusLines(const DaemonStatus& status)
{
    std::string hosts;
    for (const std::string& host : status.hosts)
        hosts += (hosts.empty() ? "" : ", ") + shown(host);
    return {
        "name:            " + orElse(shown(status.name), "(none)"),
        "address:         " + orElse(hosts, "(none)"),
        "port:            " + std::to_string(status.port),
        "phones:          " + std::to_string(status.connected) + " connected of " +
            std::to_string(status.devices) + " paired",
        "waiting prompts: " + std::to_string(status.pending),
    };
}

std::string sessionLine(const ClaudeSession& session, DaemonTime now)
{
    // The daemon's states are short words: line them up, counting characters, not bytes.
    const QString state = inertText(session.state);
    std::string line = state.isEmpty() ? "?" : isolated(state).toStdString();
    line.append(std::max<qsizetype>(9 - std::max<qsizetype>(state.size(), 1), 2), ' ');
    const std::string project = shown(session.project);
    line += orElse(shown(session.title), orElse(project, "(untitled)"));
    // A session without a title is already named by its project; do not say it twice.
    if (!session.title.empty() && !project.empty())
        line += std::string(kSeparator) + project;
    line += std::string(kSeparator) + whenText(session.lastActive, now);
    if (session.listening)
        line += std::string(kSeparator) + "phone can reply";
    if (session.queued > 0)
        line += std::string(kSeparator) + std::to_string(session.queued) + " queued";
    return line;
}

std::string deviceLine(const PairedDevice& device, DaemonTime now)
{
    std::string paired = "paired at an unknown time";
    if (known(device.paired)) {
        paired = "paired " + whenText(device.paired, now);
        const auto seconds =
            static_cast<std::time_t>(std::floor(device.paired.time_since_epoch().count()));
        std::tm local{};
        char date[32];
        if (localtime_r(&seconds, &local) &&
            std::strftime(date, sizeof date, "%Y-%m-%d %H:%M", &local) > 0)
            paired += std::string(" (") + date + ")";
    }
    return orElse(shown(device.name), "(unnamed phone)") + std::string(kSeparator) + paired +
           std::string(kSeparator) + orElse(shown(device.id), "(no id)");
}

Json statusJson(const std::optional<DaemonStatus>& status)
{
    if (!status)
        return {{"running", false}};
    return {
        {"running", true},           {"name", status->name},       {"hosts", status->hosts},
        {"port", status->port},      {"devices", status->devices}, {"connected", status->connected},
        {"pending", status->pending}};
}

Json sessionsJson(const std::vector<ClaudeSession>& sessions)
{
    Json list = Json::array();
    for (const ClaudeSession& s : sessions)
        list.push_back({{"id", s.id},
                        {"project", s.project},
                        {"title", s.title},
                        {"state", s.state},
                        {"listening", s.listening},
                        {"last_active", s.lastActive.time_since_epoch().count()},
                        {"last_text", s.lastText},
                        {"queued", s.queued}});
    return list;
}

Json devicesJson(const std::vector<PairedDevice>& devices)
{
    Json list = Json::array();
    for (const PairedDevice& d : devices)
        list.push_back(
            {{"id", d.id}, {"name", d.name}, {"paired", d.paired.time_since_epoch().count()}});
    return list;
}

std::string waybarLine(const std::optional<DaemonStatus>& status,
                       const std::vector<ClaudeSession>& sessions)
{
    // The class follows the companion's icon, so the bar's colour and icon never disagree.
    const std::string symbol = statusSymbol(status, sessions).toStdString();
    const char* kind = symbol == "bell.slash"   ? "down"
                       : symbol == "bell.badge" ? "waiting"
                                                : "quiet";
    Json line = {{"class", kind}, {"alt", symbol}};
    if (!status) {
        line["text"] = "off";
        line["tooltip"] = "harkline is not running";
    } else {
        const std::int64_t waiting = waitingCount(*status, sessions);
        line["text"] = std::to_string(waiting);
        line["tooltip"] =
            markupEscaped(orElse(shown(status->name), "harkline") + "\n" + std::to_string(waiting) +
                          " waiting · " + std::to_string(status->connected) + " of " +
                          std::to_string(status->devices) + " phones connected");
    }
    return jsonText(line);
}

} // namespace harkline::ctl
