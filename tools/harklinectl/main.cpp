// harklinectl: the companion's view and actions from a terminal and from status bars. Each
// subcommand is one entry in kSubcommands; the rules behind the actions are the companion's own
// (model/), run here in place instead of on a background thread.

#include "DaemonClient.h"
#include "Format.h"
#include "Pairing.h"
#include "PhoneActions.h"
#include "QrCode.h"
#include "TerminalQr.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <initializer_list>
#include <iostream>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

using harkline::ClaudeSession;
using harkline::DaemonClient;
using harkline::DaemonStatus;
using harkline::DaemonTime;
using harkline::Json;
using harkline::PairedDevice;
namespace ctl = harkline::ctl;

namespace {

constexpr std::string_view kProgram = "harklinectl";

enum ExitCode : int {
    kSuccess = 0,
    kFailed = 1, // the daemon answered but refused, or there is no such phone
    kUsage = 2,
    kNotRunning = 3, // scripts tell "daemon down" from other failures by this
    kExpired = 4,
    kBadReply = 5,
};

using Arguments = std::span<const std::string_view>;

// Thrown while reading the arguments; main() prints it and exits with kUsage.
struct UsageError
{
    std::string message;
};

struct Subcommand
{
    std::string_view name;
    std::string_view synopsis; // after "harklinectl NAME"
    std::string_view summary;
    std::string_view details;
    int (*run)(Arguments);
};

DaemonTime now()
{
    return DaemonTime(std::chrono::system_clock::now());
}

std::string quoted(std::string_view text)
{
    // Built by appending: GCC 12 at -O3 warns falsely (-Wrestrict) on "\"" + std::string.
    std::string result(1, '"');
    result += ctl::inert(text);
    result += '"';
    return result;
}

int fail(int code, std::string_view sentence)
{
    std::cerr << sentence << '\n';
    return code;
}

int notRunning()
{
    return fail(kNotRunning,
                "harkline is not running: nothing answers at " + DaemonClient::socketPath() + ".");
}

// The flags a subcommand accepts; anything else is a usage error.
struct Options
{
    bool json = false;
    bool waybar = false;
    std::optional<double> watch;
    std::optional<int> timeout;
    std::vector<std::string_view> operands;
};

// Seconds above 0 and at most a day: enough for any wait, and a whole count of them fits an int.
double seconds(std::string_view flag, std::string_view text)
{
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !(value > 0) || value > 86400)
        throw UsageError{std::string(flag) +
                         " takes a number of seconds above 0 and at most 86400, not " +
                         quoted(text)};
    return value;
}

// `operand` names the one argument the command needs, if it needs one.
Options parse(std::string_view command, Arguments args,
              std::initializer_list<std::string_view> flags,
              std::optional<std::string_view> operand = std::nullopt)
{
    const std::size_t operands = operand ? 1 : 0;
    const auto accepts = [&](std::string_view flag) {
        return std::find(flags.begin(), flags.end(), flag) != flags.end();
    };
    Options options;
    bool flagsEnded = false; // after "--", a phone named "-x" is a name
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string_view arg = args[i];
        const bool hasValue = i + 1 < args.size();
        if (!flagsEnded && arg == "--") {
            flagsEnded = true;
        } else if (flagsEnded) {
            if (options.operands.size() >= operands)
                throw UsageError{std::string(command) + " does not take " + quoted(arg)};
            options.operands.push_back(arg);
        } else if (arg.starts_with("--") && accepts(arg)) {
            if (arg == "--json")
                options.json = true;
            else if (arg == "--waybar")
                options.waybar = true;
            else if (!hasValue)
                throw UsageError{std::string(arg) + " needs a number of seconds"};
            else if (arg == "--watch")
                options.watch = seconds(arg, args[++i]);
            else if (arg == "--timeout")
                options.timeout = static_cast<int>(std::ceil(seconds(arg, args[++i])));
        } else if (arg.starts_with("-") && arg.size() > 1) {
            throw UsageError{std::string(command) + " has no option " + quoted(arg)};
        } else if (options.operands.size() < operands) {
            options.operands.push_back(arg);
        } else {
            throw UsageError{std::string(command) + " does not take " + quoted(arg)};
        }
    }
    if (options.operands.size() < operands)
        throw UsageError{std::string(command) + " needs " + std::string(*operand)};
    return options;
}

void print(const std::string& line)
{
    std::cout << line << '\n' << std::flush;
}

// --- status ---

std::optional<DaemonStatus> statusNow()
{
    if (const auto reply = DaemonClient::ok(DaemonClient::status()))
        return DaemonStatus(*reply);
    return std::nullopt;
}

// What a status bar shows: the status, and the sessions only when the daemon's own count of
// waiting prompts is zero, as the icon rule does not look at them otherwise. The line is due
// within the status request's time-out, however slow the sessions are: they get what is left of
// it, and when they do not come in time the line says what the status alone says. (Leaving the
// sessions out altogether would let the bar disagree with the tray icon, which shows a waiting
// session the daemon does not count; keeping the last list would still need a bound and does
// not exist for a single line.)
std::string waybarNow()
{
    using namespace std::chrono;
    const auto due =
        steady_clock::now() + std::chrono::seconds(DaemonClient::status().timeoutSeconds);
    const std::optional<DaemonStatus> status = statusNow();
    std::vector<ClaudeSession> sessions;
    const auto left = duration_cast<milliseconds>(due - steady_clock::now());
    if (status && status->pending <= 0 && left.count() > 0)
        sessions =
            DaemonClient::sessionsFrom(DaemonClient::ok(DaemonClient::sessions().request, left));
    return ctl::waybarLine(status, sessions);
}

void sleepFor(double seconds)
{
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

int runStatus(Arguments args)
{
    const Options options = parse("status", args, {"--json", "--waybar", "--watch"});
    if (options.json && options.waybar)
        throw UsageError{"status takes --json or --waybar, not both"};
    if (options.watch && !options.json && !options.waybar)
        throw UsageError{"--watch goes with --waybar or --json"};

    const auto line = [&] {
        return options.waybar ? waybarNow() : ctl::jsonText(ctl::statusJson(statusNow()));
    };
    if (options.watch) {
        // Runs until stopped; a status bar reads each line as it comes.
        std::string last;
        for (bool first = true;; first = false) {
            const std::string current = line();
            if (first || current != last)
                print(current);
            last = current;
            sleepFor(*options.watch);
        }
    }
    if (options.waybar) {
        // Down is a state the bar shows, not a failure: waybar hides a module whose command fails.
        print(waybarNow());
        return kSuccess;
    }
    const auto status = statusNow();
    if (options.json) {
        print(ctl::jsonText(ctl::statusJson(status)));
        return status ? kSuccess : kNotRunning;
    }
    if (!status)
        return notRunning();
    std::cout << "harkline is running at " << DaemonClient::socketPath() << ".\n";
    for (const std::string& text : ctl::statusLines(*status))
        std::cout << text << '\n';
    return kSuccess;
}

// --- lists ---

int runSessions(Arguments args)
{
    const Options options = parse("sessions", args, {"--json"});
    const auto reply = DaemonClient::ok(DaemonClient::sessions());
    if (!reply)
        return notRunning();
    const auto sessions = DaemonClient::sessionsFrom(reply);
    if (options.json) {
        print(ctl::jsonText(ctl::sessionsJson(sessions)));
        return kSuccess;
    }
    if (sessions.empty())
        std::cout << "no sessions\n";
    const auto at = now();
    for (const auto& session : sessions)
        std::cout << ctl::sessionLine(session, at) << '\n';
    return kSuccess;
}

int runDevices(Arguments args)
{
    const Options options = parse("devices", args, {"--json"});
    const auto reply = DaemonClient::ok(DaemonClient::devices());
    if (!reply)
        return notRunning();
    const auto devices = DaemonClient::devicesFrom(reply);
    if (options.json) {
        print(ctl::jsonText(ctl::devicesJson(devices)));
        return kSuccess;
    }
    if (devices.empty())
        std::cout << "no paired phones\n";
    const auto at = now();
    for (const auto& device : devices)
        std::cout << ctl::deviceLine(device, at) << '\n';
    return kSuccess;
}

// --- pair ---

// Set while the countdown line is open on a terminal, so that an interruption ends that line.
volatile std::sig_atomic_t g_countdownOpen = 0;

// Async-signal-safe on purpose: it ends the process at once, even while a request waits out its
// time-out, and leaves the terminal tidy (each line of the code resets its own colours).
extern "C" void cancelPairing(int signal)
{
    if (g_countdownOpen)
        (void)!::write(STDOUT_FILENO, "\n", 1);
    static const char message[] = "Pairing cancelled.\n";
    (void)!::write(STDERR_FILENO, message, sizeof message - 1);
    ::_exit(128 + signal);
}

std::string minutesAndSeconds(double seconds)
{
    const auto whole = static_cast<long long>(std::ceil(std::max(seconds, 0.0)));
    char text[32];
    std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
    return text;
}

int runPair(Arguments args)
{
    parse("pair", args, {});
    struct sigaction action
    {};
    action.sa_handler = cancelPairing;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    harkline::PairingRequest request = harkline::requestPairing();
    if (!request.offer)
        return fail(kFailed, harkline::pairingFailedNotice().toStdString());
    harkline::Pairing pairing = harkline::openPairing(*request.offer, request.devices, now());

    if (const auto modules = harkline::qrCodeModules(pairing.payload))
        std::cout << ctl::terminalQr(*modules);
    else
        std::cout << "(This code is too long to show as a QR code; enter it in the app.)\n";
    // Inert but not isolated: people copy it, and nothing follows it on its line.
    std::cout << "Pairing code: " << ctl::inert(pairing.payload) << '\n';

    const bool terminal = ::isatty(STDOUT_FILENO);
    if (!terminal)
        std::cout << "Waiting for the phone; the code expires in "
                  << minutesAndSeconds((pairing.expires - now()).count()) << ".\n";
    std::cout << std::flush;

    for (;;) {
        const auto tick = std::chrono::steady_clock::now();
        const DaemonTime at = now();
        // As in the companion: a poll is sent only while the offer is open, and a poll sent in
        // time counts even when its answer comes after the end.
        if (!harkline::pairingWatched(pairing, at)) {
            if (g_countdownOpen)
                std::cout << "\r\033[K" << std::flush;
            g_countdownOpen = 0;
            return fail(kExpired, "The pairing code expired before a phone used it.");
        }
        if (terminal) {
            std::cout << "\r\033[KWaiting for the phone; the code expires in "
                      << minutesAndSeconds((pairing.expires - at).count()) << std::flush;
            g_countdownOpen = 1;
        }
        const auto fresh = harkline::newlyPaired(pairing, harkline::loadDevices());
        if (fresh) {
            pairing.pairedWith = fresh->name;
            if (g_countdownOpen)
                std::cout << "\r\033[K";
            g_countdownOpen = 0;
            print("Paired with " + ctl::shown(*pairing.pairedWith));
            return kSuccess;
        }
        std::this_thread::sleep_until(tick + std::chrono::seconds(1));
    }
}

// --- phone actions ---

// The phone `what` names: its id, or else the name of exactly one phone.
std::optional<PairedDevice> findPhone(const std::vector<PairedDevice>& devices,
                                      std::string_view what, std::string& problem)
{
    for (const PairedDevice& device : devices)
        if (device.id == what)
            return device;
    std::vector<PairedDevice> named;
    for (const PairedDevice& device : devices)
        if (device.name == what)
            named.push_back(device);
    if (named.size() == 1)
        return named.front();
    if (named.empty())
        problem = "No paired phone has the id or name " + quoted(what) + ".";
    else
        problem = std::to_string(named.size()) + " paired phones are named " + quoted(what) +
                  "; give the id of the one to remove (see harklinectl devices).";
    return std::nullopt;
}

int runRevoke(Arguments args)
{
    const Options options = parse("revoke", args, {}, "the id or the name of a phone");
    if (options.operands.front().empty())
        throw UsageError{"revoke needs the id or the name of a phone"};
    const auto reply = DaemonClient::ok(DaemonClient::devices());
    if (!reply)
        return notRunning();
    std::string problem;
    const auto device =
        findPhone(DaemonClient::devicesFrom(reply), options.operands.front(), problem);
    if (!device)
        return fail(kFailed, problem);
    const bool removed = harkline::revokeWork(device->id);
    const std::string notice = harkline::revokeNotice(device->name, removed).toStdString();
    if (!removed)
        return fail(kFailed, notice);
    print(notice);
    return kSuccess;
}

int runTest(Arguments args)
{
    parse("test", args, {});
    const auto connected = harkline::sendTestWork();
    const std::string notice = harkline::sendTestNotice(connected).toStdString();
    if (!connected)
        return fail(kNotRunning, notice);
    print(notice);
    return kSuccess;
}

// --- raw ---

// The time-out the companion gives the command, from its command table; 3 s for any other.
int tableTimeout(const Json& request)
{
    const Json* cmd = harkline::member(request, "cmd");
    for (const auto& command :
         {DaemonClient::status(), DaemonClient::devices(), DaemonClient::sessions(),
          DaemonClient::pair(), DaemonClient::revoke(""), DaemonClient::emitTest()})
        if (cmd && command.request.at("cmd") == *cmd)
            return command.timeoutSeconds;
    return DaemonClient::kTimeout;
}

int runRaw(Arguments args)
{
    const Options options = parse("raw", args, {"--timeout"}, "a JSON request object");
    const Json request = harkline::parseReply(options.operands.front());
    if (request.is_discarded())
        throw UsageError{"the request is not valid JSON"};
    if (!request.is_object())
        throw UsageError{"the request must be a JSON object, such as {\"cmd\":\"status\"}"};
    Json reply;
    try {
        reply = DaemonClient::request(request, options.timeout.value_or(tableTimeout(request)));
    } catch (const DaemonClient::NotRunning&) {
        return notRunning();
    } catch (const DaemonClient::BadReply&) {
        return fail(kBadReply, "harkline sent a bad reply: not one JSON object, or nothing in "
                               "time.");
    }
    print(ctl::jsonText(reply));
    const Json* ok = harkline::member(reply, "ok");
    return ok && ok->is_boolean() && ok->get<bool>() ? kSuccess : kFailed;
}

// --- help ---

int runHelp(Arguments args);

constexpr std::array kSubcommands{
    Subcommand{"status", "[--json | --waybar] [--watch SECONDS]",
               "whether the daemon answers, its name, address, port, phones and waiting prompts",
               "  --json             one JSON object: running, name, hosts, port, devices,\n"
               "                     connected, pending (only running when it does not answer)\n"
               "  --waybar           one JSON line for waybar's custom module: text (waiting\n"
               "                     prompts, \"off\" when down), tooltip (Pango markup, daemon\n"
               "                     text escaped), class (down, waiting, quiet), alt (the icon\n"
               "                     name: bell.slash, bell.badge, bell); within 3 s; exits 0\n"
               "                     also when the daemon is down\n"
               "  --watch SECONDS    with --waybar or --json: ask again every SECONDS and print a\n"
               "                     new line only when it changes; runs until stopped\n",
               runStatus},
    Subcommand{"sessions", "[--json]",
               "one line per Claude Code session: state, title, project, last activity",
               "  --json    one JSON array of objects: id, project, title, state, listening,\n"
               "            last_active (seconds since the epoch), last_text, queued\n",
               runSessions},
    Subcommand{"devices", "[--json]", "one line per paired phone: name, when paired, id",
               "  --json    one JSON array of objects: id, name, paired (seconds since the\n"
               "            epoch)\n",
               runDevices},
    Subcommand{"pair", "", "show a pairing code as a QR code and wait until a new phone uses it",
               "Asks the daemon for a pairing code, draws it as a QR code for the phone's camera\n"
               "(dark on light, whatever the terminal's colours), prints the code as text under\n"
               "it and waits, polling the phone list each second, until a phone that was not\n"
               "paired before shows up: prints \"Paired with NAME\" and exits 0. Exits 4 when the\n"
               "code expires first, 1 when the daemon gives no code; Ctrl-C stops waiting.\n",
               runPair},
    Subcommand{"revoke", "ID|NAME", "unpair a phone, given its id or its name",
               "Unpairs the phone with this id, or else the one phone with this name (see\n"
               "harklinectl devices). A name that no phone or several phones have is an error.\n",
               runRevoke},
    Subcommand{"test", "", "send a test notification to the paired phones",
               "Prints how many phones were connected to receive it; exits 3 when the daemon\n"
               "is not running.\n",
               runTest},
    Subcommand{
        "raw", "[--timeout SECONDS] JSON",
        "send one request object and print the reply as parsed, in compact JSON",
        "For debugging a daemon: JSON is one request object, such as '{\"cmd\":\"status\"}'.\n"
        "Prints the reply whatever its \"ok\" member says and exits 0 when it is true, 1\n"
        "when not; 3 when nothing answers, 5 when the reply is not one JSON object or\n"
        "does not come in time.\n"
        "  --timeout SECONDS  how long to wait for the reply (default: the companion's\n"
        "                     time-out for the command, 15 s for sessions, 3 s otherwise)\n",
        runRaw},
    Subcommand{"help", "[COMMAND]", "show this help, or a command's", "", runHelp},
};

const Subcommand* find(std::string_view name)
{
    for (const Subcommand& command : kSubcommands)
        if (command.name == name)
            return &command;
    return nullptr;
}

void printHelp()
{
    std::cout << "Usage: " << kProgram << " COMMAND [OPTIONS]\n\n"
              << "The harkline companion's view and actions from a terminal: asks the local\n"
              << "harkline daemon through its socket (" << DaemonClient::socketPath() << ").\n\n"
              << "Commands:\n";
    for (const Subcommand& command : kSubcommands) {
        std::string name(command.name);
        name.resize(10, ' ');
        std::cout << "  " << name << command.summary << '\n';
    }
    std::cout << "\nRun '" << kProgram << " COMMAND --help' for a command's options.\n\n"
              << "Exit status: 0 success; 1 the daemon refused, or no such phone; 2 wrong usage;\n"
              << "3 harkline is not running; 4 the pairing code expired; 5 a bad reply (raw).\n";
}

void printHelp(const Subcommand& command)
{
    std::cout << "Usage: " << kProgram << ' ' << command.name
              << (command.synopsis.empty() ? "" : " ") << command.synopsis << "\n\n"
              << char(std::toupper(command.summary.front())) << command.summary.substr(1) << ".\n";
    if (!command.details.empty())
        std::cout << '\n' << command.details;
}

int runHelp(Arguments args)
{
    if (args.size() > 1)
        throw UsageError{"help takes one command at most"};
    if (args.empty()) {
        printHelp();
        return kSuccess;
    }
    const Subcommand* command = find(args.front());
    if (!command)
        throw UsageError{"there is no command " + quoted(args.front())};
    printHelp(*command);
    return kSuccess;
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string_view> args(argv + 1, argv + argc);
    const auto wantsHelp = [](Arguments rest) {
        return std::any_of(rest.begin(), rest.end(),
                           [](std::string_view a) { return a == "-h" || a == "--help"; });
    };
    std::string help = std::string(kProgram) + " --help";
    try {
        if (args.empty())
            throw UsageError{"a command is needed"};
        const Subcommand* command = find(args.front());
        if (!command) {
            if (wantsHelp(args)) {
                printHelp();
                return kSuccess;
            }
            throw UsageError{
                (args.front().starts_with("-") ? "there is no option " : "there is no command ") +
                quoted(args.front())};
        }
        help = std::string(kProgram) + " " + std::string(command->name) + " --help";
        const Arguments rest = Arguments(args).subspan(1);
        if (wantsHelp(rest)) {
            printHelp(*command);
            return kSuccess;
        }
        return command->run(rest);
    } catch (const UsageError& error) {
        std::cerr << kProgram << ": " << error.message << " (see " << help << ").\n";
        return kUsage;
    }
}
