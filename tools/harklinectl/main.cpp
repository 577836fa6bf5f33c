// harklinectl: the daemon link from a terminal. Each subcommand is one entry in kSubcommands.

#include "DaemonClient.h"
#include "Format.h"

#include <array>
#include <chrono>
#include <iostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

using harkline::DaemonClient;
using harkline::DaemonStatus;
namespace ctl = harkline::ctl;

namespace {

constexpr std::string_view kProgram = "harklinectl";

enum ExitCode : int {
    kSuccess = 0,
    kUsage = 2,
    kNotRunning = 3, // scripts tell "daemon down" from other failures by this
};

using Arguments = std::span<const std::string_view>;

struct Subcommand
{
    std::string_view name;
    std::string_view summary;
    int (*run)(Arguments);
};

int usageError(std::string_view message)
{
    std::cerr << kProgram << ": " << message << " (try --help)\n";
    return kUsage;
}

int notRunning()
{
    std::cerr << "harkline is not running\n";
    return kNotRunning;
}

harkline::DaemonTime now()
{
    return std::chrono::time_point_cast<harkline::DaemonTime::duration>(
        std::chrono::system_clock::now());
}

int runStatus(Arguments)
{
    const auto reply = DaemonClient::ok(DaemonClient::status());
    if (!reply)
        return notRunning();
    for (const std::string& line : ctl::statusLines(DaemonStatus(*reply)))
        std::cout << line << '\n';
    return kSuccess;
}

int runSessions(Arguments)
{
    const auto reply = DaemonClient::ok(DaemonClient::sessions());
    if (!reply)
        return notRunning();
    const auto sessions = DaemonClient::sessionsFrom(reply);
    if (sessions.empty())
        std::cout << "no sessions\n";
    const auto at = now();
    for (const auto& session : sessions)
        std::cout << ctl::sessionLine(session, at) << '\n';
    return kSuccess;
}

int runDevices(Arguments)
{
    const auto reply = DaemonClient::ok(DaemonClient::devices());
    if (!reply)
        return notRunning();
    const auto devices = DaemonClient::devicesFrom(reply);
    if (devices.empty())
        std::cout << "no paired phones\n";
    const auto at = now();
    for (const auto& device : devices)
        std::cout << ctl::deviceLine(device, at) << '\n';
    return kSuccess;
}

constexpr std::array kSubcommands{
    Subcommand{"status", "the daemon's name, port, hosts, phones and waiting prompts", runStatus},
    Subcommand{"sessions", "one line per Claude Code session", runSessions},
    Subcommand{"devices", "one line per paired phone", runDevices},
};

void printHelp()
{
    std::cout << "Usage: " << kProgram << " COMMAND\n\n"
              << "Asks the local harkline daemon through its socket.\n\nCommands:\n";
    for (const Subcommand& command : kSubcommands) {
        std::string name(command.name);
        name.resize(10, ' ');
        std::cout << "  " << name << command.summary << '\n';
    }
    std::cout << "\nOptions:\n  -h, --help  show this help and exit\n\n"
              << "Exit status: 0 on success, 2 on a usage error, 3 when harkline is not running.\n";
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string_view> args(argv + 1, argv + argc);
    for (const std::string_view arg : args) {
        if (arg == "-h" || arg == "--help") {
            printHelp();
            return kSuccess;
        }
    }
    if (args.empty())
        return usageError("a command is needed");
    if (args[0] == "help") {
        printHelp();
        return kSuccess;
    }
    for (const Subcommand& command : kSubcommands) {
        if (command.name != args[0])
            continue;
        const Arguments rest = Arguments(args).subspan(1);
        // None of today's commands takes arguments; each will check its own when one does.
        if (!rest.empty())
            return usageError(std::string(command.name) + " takes no arguments, not \"" +
                              std::string(rest.front()) + "\"");
        return command.run(rest);
    }
    if (args[0].starts_with("-"))
        return usageError("unknown option \"" + std::string(args[0]) + "\"");
    return usageError("unknown command \"" + std::string(args[0]) + "\"");
}
