// harkline-demo-daemon: a simulated harkline daemon for trying the companion without the real
// one, and for poking at its fault handling by hand.

#include "DaemonClient.h"
#include "DemoWorld.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

using harkline::DaemonClient;
using harkline::Json;
using harkline::demo::Clock;
using harkline::demo::DemoWorld;

namespace {

constexpr const char* kProgram = "harkline-demo-daemon";
constexpr std::size_t kMaxRequest = 1 << 20;

constexpr const char* kHelp = R"(Usage: harkline-demo-daemon [options]

Serves a simulated harkline daemon on a Unix socket: sessions that move between working,
waiting and ended, a couple of paired phones, and pairing offers that a simulated phone
accepts a few seconds later. Prints one line saying what it serves, then one line per
pairing, unpairing and test notification. Stops on SIGINT or SIGTERM and removes its socket.

Options:
  --socket PATH         listen on PATH instead of the companion's own socket path
                        (~/.local/state/harkline/harkline.sock)
  --pair-delay SECONDS  a phone pairs this long after a "pair" request (default 8);
                        never when the offer (120 s) lapses first
  --sessions N          serve N sessions (default 5): beyond five, the same stories
                        again under other ids and projects
  --phones N            start with N paired phones (default 2)
  --hang                accept connections but never answer
  --garbage             answer every request with bytes that are not JSON
  --slow MS             send each reply one byte at a time, MS milliseconds apart
  -h, --help            show this help and exit

Exit status: 0 after SIGINT or SIGTERM, 1 when it cannot serve, 2 on a bad option.
)";

struct Options
{
    std::string socket;
    bool socketGiven = false;
    int pairDelay = 8;
    bool hang = false;
    bool garbage = false;
    int slowMs = 0;
    int sessions = harkline::demo::DemoWorld::kScripts;
    int phones = 2;
};

[[noreturn]] void usageError(const std::string& message)
{
    std::fprintf(stderr, "%s: %s (try --help)\n", kProgram, message.c_str());
    std::exit(2);
}

[[noreturn]] void fail(const std::string& message)
{
    std::fprintf(stderr, "%s: %s\n", kProgram, message.c_str());
    std::exit(1);
}

int wholeArgument(std::string_view flag, std::string_view text, int lowest, int highest)
{
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc{} || end != text.data() + text.size() ||
        value < lowest || value > highest)
        usageError(std::string(flag) + " needs a whole number from " + std::to_string(lowest) +
                   " to " + std::to_string(highest) + ", not \"" + std::string(text) + "\"");
    return value;
}

Options parseOptions(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        std::string_view arg = argv[i];
        std::optional<std::string_view> inlineValue;
        if (const auto equals = arg.find('='); arg.starts_with("--") && equals != arg.npos) {
            inlineValue = arg.substr(equals + 1);
            arg = arg.substr(0, equals);
        }
        auto value = [&]() -> std::string_view {
            if (inlineValue)
                return *inlineValue;
            if (i + 1 >= argc)
                usageError(std::string(arg) + " needs a value");
            return argv[++i];
        };
        auto noValue = [&] {
            if (inlineValue)
                usageError(std::string(arg) + " takes no value");
        };
        if (arg == "-h" || arg == "--help") {
            noValue();
            std::fputs(kHelp, stdout);
            std::exit(0);
        } else if (arg == "--socket") {
            options.socket = value();
            options.socketGiven = true;
            if (options.socket.empty())
                usageError("--socket needs a non-empty path");
        } else if (arg == "--pair-delay") {
            options.pairDelay = wholeArgument(arg, value(), 0, 86400);
        } else if (arg == "--sessions") {
            options.sessions = wholeArgument(arg, value(), 0, 100000);
        } else if (arg == "--phones") {
            options.phones = wholeArgument(arg, value(), 0, 10000);
        } else if (arg == "--slow") {
            options.slowMs = wholeArgument(arg, value(), 1, 60000);
        } else if (arg == "--hang") {
            noValue();
            options.hang = true;
        } else if (arg == "--garbage") {
            noValue();
            options.garbage = true;
        } else if (arg.starts_with("-")) {
            usageError("unknown option \"" + std::string(arg) + "\"");
        } else {
            usageError("unexpected argument \"" + std::string(arg) + "\"");
        }
    }
    if (options.hang && (options.garbage || options.slowMs > 0))
        usageError("--hang never answers, so it cannot be combined with --garbage or --slow");
    if (!options.socketGiven)
        options.socket = DaemonClient::socketPath();
    return options;
}

// Parent directories that do not exist yet are made private: the socket is the daemon's door.
void makeParents(const std::string& path)
{
    for (std::size_t slash = path.find('/', 1); slash != path.npos;
         slash = path.find('/', slash + 1)) {
        const std::string directory = path.substr(0, slash);
        if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST)
            fail("cannot create " + directory + ": " + std::strerror(errno));
    }
}

bool setAddress(const std::string& path, sockaddr_un& address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return false;
    std::memcpy(address.sun_path, path.data(), path.size());
    return true;
}

// Something listens on the path. Does it answer like a daemon?
bool answersStatus(int fd)
{
    const timeval timeout{2, 0};
    (void)setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    const std::string request = "{\"cmd\":\"status\"}\n";
    if (::send(fd, request.data(), request.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(request.size()))
        return false;
    std::string reply;
    char buffer[4096];
    ssize_t n;
    while (reply.find('\n') == reply.npos && (n = ::recv(fd, buffer, sizeof buffer, 0)) > 0)
        reply.append(buffer, static_cast<std::size_t>(n));
    return Json::parse(reply, nullptr, false).is_object();
}

// Refuses to take over a live daemon's socket or a file that is not a socket; removes a socket
// that nobody listens on any more (left behind by a crash).
void clearStaleSocket(const std::string& path)
{
    struct stat info
    {};
    if (::lstat(path.c_str(), &info) != 0)
        return;
    if (!S_ISSOCK(info.st_mode))
        fail(path + " exists and is not a socket; not touching it");
    sockaddr_un address{};
    setAddress(path, address);
    const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (probe < 0)
        fail(std::string("cannot create a socket: ") + std::strerror(errno));
    if (::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        const bool daemon = answersStatus(probe);
        ::close(probe);
        fail(daemon ? "a daemon already answers on " + path + "; stop it first"
                    : "something already listens on " + path + " (it does not answer)");
    }
    const int error = errno;
    ::close(probe);
    if (error != ECONNREFUSED)
        fail("cannot check " + path + ": " + std::strerror(error));
    if (::unlink(path.c_str()) != 0)
        fail("cannot remove the stale socket " + path + ": " + std::strerror(errno));
}

bool sendAll(int fd, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t n = ::send(fd, data, size, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

// Reads up to the first newline (or the end of the stream). False when the client sent nothing.
bool readRequest(int fd, std::string& line)
{
    char buffer[4096];
    while (line.size() <= kMaxRequest) {
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        line.append(buffer, static_cast<std::size_t>(n));
        if (const auto newline = line.find('\n'); newline != line.npos) {
            line.resize(newline);
            return true;
        }
    }
    return !line.empty();
}

void serve(int fd, const Options& options, DemoWorld& world)
{
    // A client that connects and sends nothing must not hold its thread for ever.
    const timeval timeout{10, 0};
    (void)setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);

    std::string line;
    const bool got = readRequest(fd, line);
    if (options.hang) {
        // Hold the connection until the client gives up and closes it.
        char buffer[256];
        for (;;) {
            const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
            if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK))
                break;
        }
    } else if (got) {
        std::string reply;
        if (options.garbage) {
            reply = "{\"ok\":tru\xff\x01 this is not JSON\n";
        } else {
            const Json answer = line.size() > kMaxRequest
                                    ? Json{{"ok", false}, {"error", "request is too long"}}
                                    : world.answer(line, Clock::now());
            reply = answer.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
        }
        if (options.slowMs > 0) {
            for (const char byte : reply) {
                if (!sendAll(fd, &byte, 1))
                    break;
                std::this_thread::sleep_for(std::chrono::milliseconds(options.slowMs));
            }
        } else {
            sendAll(fd, reply.data(), reply.size());
        }
    }
    ::close(fd);
}

std::string describe(const Options& options)
{
    std::string faults;
    if (options.hang)
        faults = "hang (never answers)";
    if (options.garbage)
        faults = "garbage (answers are not JSON)";
    if (options.slowMs > 0)
        faults += std::string(faults.empty() ? "" : ", ") + "slow (one byte every " +
                  std::to_string(options.slowMs) + " ms)";
    return std::string(kProgram) + ": serving " + options.socket + " (pair delay " +
           std::to_string(options.pairDelay) + " s; faults: " + (faults.empty() ? "none" : faults) +
           ")";
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = parseOptions(argc, argv);

    // The companion cannot reach a longer path, so neither should we pretend to serve one.
    if (options.socket.size() > DaemonClient::kMaxPathBytes) {
        const std::string message = "the socket path " + options.socket + " is longer than " +
                                    std::to_string(DaemonClient::kMaxPathBytes) + " bytes";
        if (options.socketGiven)
            usageError(message);
        fail(message);
    }

    // Signals are taken by sigwait() below; every thread started later inherits the mask.
    // A shell starts background jobs with SIGINT ignored, and an ignored signal may never reach
    // sigwait(); take the defaults back first.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    for (const int stop : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(stop, SIG_DFL);
        sigaddset(&stopSignals, stop);
    }
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    makeParents(options.socket);
    clearStaleSocket(options.socket);

    sockaddr_un address{};
    setAddress(options.socket, address);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0)
        fail(std::string("cannot create a socket: ") + std::strerror(errno));
    const mode_t oldMask = ::umask(0077); // the socket file is for our own user only
    const int bound = ::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int bindError = errno;
    ::umask(oldMask);
    if (bound != 0)
        fail("cannot listen on " + options.socket + ": " + std::strerror(bindError));
    if (::listen(listener, 64) != 0)
        fail("cannot listen on " + options.socket + ": " + std::strerror(errno));
    struct stat ours
    {};
    ::stat(options.socket.c_str(), &ours);

    static DemoWorld world(Clock::now(), std::chrono::seconds(options.pairDelay), stdout,
                           options.sessions, options.phones);

    std::thread([listener, &options] {
        for (;;) {
            const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0) {
                if (errno == EMFILE || errno == ENFILE || errno == ENOMEM)
                    std::this_thread::sleep_for(std::chrono::milliseconds(100));
                continue;
            }
            try {
                std::thread(serve, client, std::cref(options), std::ref(world)).detach();
            } catch (const std::system_error&) {
                ::close(client); // out of threads: drop this one rather than stall the rest
            }
        }
    }).detach();

    std::printf("%s\n", describe(options).c_str());
    std::fflush(stdout);

    int signal = 0;
    while (sigwait(&stopSignals, &signal) != 0) {
    }

    // Remove the socket only if it is still ours: a daemon started since may have replaced it.
    struct stat now
    {};
    if (::stat(options.socket.c_str(), &now) == 0 && now.st_dev == ours.st_dev &&
        now.st_ino == ours.st_ino)
        ::unlink(options.socket.c_str());
    std::printf("%s: stopped by %s\n", kProgram, strsignal(signal));
    std::fflush(stdout);
    // Connection threads may still be running; skip the static destructors they could race.
    std::_Exit(0);
}
