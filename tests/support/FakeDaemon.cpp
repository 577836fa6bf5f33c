#include "FakeDaemon.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace harkline::test {
namespace {

// A socket bound at `path`, made with its folders in place of whatever stood there; -1 on failure.
int boundAt(const std::string& path)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    ::unlink(path.c_str());
    sockaddr_un address{AF_UNIX, {}};
    if (path.size() >= sizeof address.sun_path)
        return -1;
    std::memcpy(address.sun_path, path.data(), path.size());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
        return fd;
    ::close(fd);
    return -1;
}

// True when the client closed (or we shut the connection down) within `ms`, -1 meaning ever.
bool endsWithin(int fd, int ms)
{
    pollfd end{fd, POLLIN | POLLRDHUP, 0};
    return ::poll(&end, 1, ms) != 0;
}

} // namespace

FakeDaemon::FakeDaemon(std::string path) : path_(std::move(path)), listenFd_(boundAt(path_))
{
    if (listenFd_ < 0 || ::listen(listenFd_, 64) != 0)
        throw std::runtime_error("fake daemon cannot listen at " + path_ + ": " +
                                 std::strerror(errno));
    handler_ = [](const std::string&) { return Script::answer({{"ok", true}}); };
    acceptor_ = std::thread([this] {
        while (!stopping_) { // the destructor shuts the socket down, which ends accept()
            const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0)
                continue;
            ++connections_;
            const std::lock_guard lock(mutex_);
            open_.insert(fd);
            workers_.emplace_back([this, fd] { serve(fd); });
        }
    });
}

FakeDaemon::~FakeDaemon()
{
    stopping_ = true;
    ::shutdown(listenFd_, SHUT_RDWR);
    acceptor_.join();
    {
        const std::lock_guard lock(mutex_); // wakes every connection still waiting
        for (const int fd : open_)
            ::shutdown(fd, SHUT_RDWR);
    }
    for (std::thread& worker : workers_)
        worker.join();
    ::close(listenFd_);
    ::unlink(path_.c_str());
}

void FakeDaemon::setHandler(Handler handler)
{
    const std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
}

std::vector<std::string> FakeDaemon::requests() const
{
    const std::lock_guard lock(mutex_);
    return requests_;
}

int FakeDaemon::count(const std::string& cmd) const
{
    return int(std::ranges::count(requests(), cmd, &FakeDaemon::commandOf));
}

std::string FakeDaemon::commandOf(const std::string& requestLine)
{
    const Json request = parseReply(requestLine);
    const Json* cmd = member(request, "cmd");
    return cmd && cmd->is_string() ? cmd->get<std::string>() : std::string();
}

bool FakeDaemon::leaveStaleSocket(const std::string& path)
{
    const int fd = boundAt(path);
    ::close(fd);
    return fd >= 0;
}

void FakeDaemon::serve(int fd)
{
    std::string line;
    char buffer[4096];
    for (ssize_t n = 0; !closeBeforeRead_ && line.find('\n') == std::string::npos &&
                        (n = ::read(fd, buffer, sizeof buffer)) > 0;)
        line.append(buffer, static_cast<std::size_t>(n));
    Script script;
    if (!closeBeforeRead_) {
        const std::lock_guard lock(mutex_);
        requests_.push_back(line);
        script = handler_(line);
    }
    for (std::size_t i = 0; i < script.chunks.size(); ++i)
        if ((i > 0 && script.gap.count() > 0 && endsWithin(fd, int(script.gap.count()))) ||
            ::send(fd, script.chunks[i].data(), script.chunks[i].size(), MSG_NOSIGNAL) < 0)
            break;
    if (script.hang)
        endsWithin(fd, -1);
    const std::lock_guard lock(mutex_);
    open_.erase(fd);
    ::close(fd);
}

} // namespace harkline::test
