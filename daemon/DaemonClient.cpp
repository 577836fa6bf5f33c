#include "DaemonClient.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace harkline {
namespace {

// Closes the socket on every way out of an exchange, exceptions included.
class SocketFd
{
public:
    explicit SocketFd(int fd) : fd_(fd) {}
    ~SocketFd()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    SocketFd(const SocketFd&) = delete;
    SocketFd& operator=(const SocketFd&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

std::string homeDirectory()
{
    if (const char* home = std::getenv("HOME"); home && *home)
        return home;
    passwd entry{};
    passwd* found = nullptr;
    char buffer[4096];
    if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found)
        return found->pw_dir;
    return {};
}

// Who serves the socket. False when the kernel cannot tell us.
bool peerUid(int fd, uid_t& uid)
{
#if defined(SO_PEERCRED)
    ucred credentials{};
    socklen_t length = sizeof credentials;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0)
        return false;
    uid = credentials.uid;
    return true;
#else
    gid_t gid = 0;
    return getpeereid(fd, &uid, &gid) == 0;
#endif
}

template <typename Record>
std::vector<Record> recordsIn(const std::optional<Json>& reply, const char* key)
{
    std::vector<Record> records;
    if (!reply)
        return records;
    const Json* list = member(*reply, key);
    if (!list || !list->is_array())
        return records;
    for (const Json& element : *list)
        if (!element.is_object())
            return records;
    records.reserve(list->size());
    for (const Json& element : *list)
        records.emplace_back(element);
    return records;
}

} // namespace

std::string DaemonClient::socketPath()
{
    std::string path = homeDirectory() + "/.local/state/harkline/harkline.sock";
    if (path.size() < kMaxPathBytes + 1)
        return path;
    const char* user = std::getenv("USER");
    if (!user)
        user = std::getenv("LOGNAME");
    return std::string("/tmp/harkline-") + (user ? user : "user") + ".sock";
}

Json DaemonClient::request(const Json& request, std::chrono::milliseconds timeout)
{
    // Close-on-exec so that a service-manager child started meanwhile does not inherit it.
    const SocketFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (fd.get() < 0)
        throw NotRunning{};

    // A zero timeval would mean no time-out at all.
    timeout = std::max(timeout, std::chrono::milliseconds(1));
    const timeval limit{static_cast<time_t>(timeout.count() / 1000),
                        static_cast<suseconds_t>(timeout.count() % 1000 * 1000)};
    (void)setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    (void)setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
#if defined(SO_NOSIGPIPE)
    const int on = 1;
    (void)setsockopt(fd.get(), SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif

    const std::string path = socketPath();
    if (path.size() > kMaxPathBytes)
        throw NotRunning{};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw NotRunning{};

    uid_t peer = 0;
    if (!peerUid(fd.get(), peer) || !peerAllowed(peer, getuid()))
        throw NotRunning{};

    std::string text = request.dump(); // throws the writer's own error on invalid UTF-8
    text.push_back('\n');

#if defined(MSG_NOSIGNAL)
    constexpr int sendFlags = MSG_NOSIGNAL; // a closed peer is a failed write, not a SIGPIPE
#else
    constexpr int sendFlags = 0;
#endif
    const ssize_t written = ::send(fd.get(), text.data(), text.size(), sendFlags);
    if (written < 0 || static_cast<std::size_t>(written) != text.size())
        throw BadReply{};

    // Each read is bounded by the receive time-out, and all of them together by the deadline:
    // one byte every 100 ms would otherwise keep a thread busy for as long as the daemon likes.
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::string reply;
    std::vector<char> chunk(kReadChunk);
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            throw BadReply{};
        pollfd waiting{fd.get(), POLLIN, 0};
        const int ready = ::poll(&waiting, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready == 0)
            throw BadReply{};
        const ssize_t n = ::recv(fd.get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
        if (n < 0 && (errno == EINTR || errno == EAGAIN))
            continue; // a signal or a spurious wake-up is not the daemon's answer
        if (n <= 0)
            break;
        const auto count = static_cast<std::size_t>(n);
        if (reply.size() + count > kMaxReplyBytes)
            throw BadReply{};
        reply.append(chunk.data(), count);
        if (std::memchr(chunk.data(), '\n', count))
            break;
    }

    Json parsed = parseReply(reply);
    if (parsed.is_discarded() || !parsed.is_object())
        throw BadReply{};
    return parsed;
}

std::optional<Json> DaemonClient::ok(const Json& request,
                                     std::chrono::milliseconds timeout) noexcept
{
    try {
        Json reply = DaemonClient::request(request, timeout);
        const Json* flag = member(reply, "ok");
        if (flag && flag->is_boolean() && flag->get<bool>())
            return reply;
    } catch (...) {
        // Every failure means the same to callers: no reply.
    }
    return std::nullopt;
}

DaemonClient::Command DaemonClient::status()
{
    return {{{"cmd", "status"}}, kTimeout};
}
DaemonClient::Command DaemonClient::devices()
{
    return {{{"cmd", "devices"}}, kTimeout};
}
DaemonClient::Command DaemonClient::sessions()
{
    return {{{"cmd", "sessions"}}, kSessionsTimeout};
}
DaemonClient::Command DaemonClient::pair()
{
    return {{{"cmd", "pair"}}, kTimeout};
}

DaemonClient::Command DaemonClient::revoke(const std::string& deviceId)
{
    return {{{"cmd", "revoke"}, {"id", deviceId}}, kTimeout};
}

DaemonClient::Command DaemonClient::emitTest()
{
    const Json event = {{"kind", "stop"},
                        {"project", "harkline"},
                        {"cwd", ""},
                        {"session", "test"},
                        {"message", "Test notification from harkline"},
                        {"detail", ""}};
    return {{{"cmd", "emit"}, {"event", event}}, kTimeout};
}

std::vector<PairedDevice> DaemonClient::devicesFrom(const std::optional<Json>& reply)
{
    return recordsIn<PairedDevice>(reply, "devices");
}

std::vector<ClaudeSession> DaemonClient::sessionsFrom(const std::optional<Json>& reply)
{
    return recordsIn<ClaudeSession>(reply, "sessions");
}

std::optional<DaemonClient::PairingOffer> DaemonClient::offerFrom(const std::optional<Json>& reply)
{
    if (!reply)
        return std::nullopt;
    const Json* qr = member(*reply, "qr");
    if (!qr || !qr->is_string() || qr->get_ref<const std::string&>().empty())
        return std::nullopt;
    PairingOffer offer{qr->get<std::string>(), kDefaultExpiry};
    if (const Json* expires = member(*reply, "expires_in"))
        if (const auto seconds = wholeNumber(*expires))
            offer.expiresIn = *seconds;
    return offer;
}

std::int64_t DaemonClient::connectedFrom(const std::optional<Json>& reply)
{
    if (reply)
        if (const Json* connected = member(*reply, "connected"))
            if (const auto n = wholeNumber(*connected))
                return *n;
    return 0;
}

} // namespace harkline
