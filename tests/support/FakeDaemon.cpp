#include "FakeDaemon.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace harkline::test {

FakeDaemon::FakeDaemon(std::string path) : path_(std::move(path))
{
    std::filesystem::create_directories(std::filesystem::path(path_).parent_path());
    ::unlink(path_.c_str());
    listenFd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path_.size() >= sizeof address.sun_path)
        throw std::runtime_error("fake daemon path too long: " + path_);
    std::memcpy(address.sun_path, path_.data(), path_.size());
    if (listenFd_ < 0 ||
        ::bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listenFd_, 64) != 0)
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
            workers_.emplace_back([this, fd] { serve(fd); });
        }
    });
}

FakeDaemon::~FakeDaemon()
{
    stopping_ = true;
    ::shutdown(listenFd_, SHUT_RDWR);
    acceptor_.join();
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

void FakeDaemon::setReplies(std::vector<std::pair<std::string, Json>> replies)
{
    setHandler([replies = std::move(replies)](const std::string& line) {
        for (const auto& [name, reply] : replies)
            if (name == commandOf(line))
                return Script::answer(reply);
        return Script::answer({{"ok", false}});
    });
}

std::vector<std::string> FakeDaemon::requests() const
{
    const std::lock_guard lock(mutex_);
    return requests_;
}

int FakeDaemon::count(const std::string& cmd) const
{
    int n = 0;
    for (const std::string& line : requests())
        n += commandOf(line) == cmd;
    return n;
}

std::string FakeDaemon::commandOf(const std::string& requestLine)
{
    const Json request = parseReply(requestLine);
    const Json* cmd = member(request, "cmd");
    return cmd && cmd->is_string() ? cmd->get<std::string>() : std::string();
}

bool FakeDaemon::leaveStaleSocket(const std::string& path)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, {}};
    std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path - 1));
    const bool bound = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return bound;
}

bool FakeDaemon::waitForEnd(int fd, int ms) const
{
    for (int waited = 0; !stopping_; waited += 20) {
        pollfd end{fd, POLLIN | POLLRDHUP, 0};
        if (::poll(&end, 1, std::min(20, ms - waited)) > 0)
            return true;
        if (waited >= ms)
            return false;
    }
    return true;
}

void FakeDaemon::serve(int fd)
{
    if (closeBeforeRead_) {
        ::close(fd);
        return;
    }
    std::string line;
    char buffer[4096];
    for (int waited = 0; line.find('\n') == std::string::npos && !stopping_ && waited < 5000;) {
        pollfd in{fd, POLLIN, 0};
        if (::poll(&in, 1, 20) == 0) {
            waited += 20;
            continue;
        }
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0)
            break;
        line.append(buffer, static_cast<std::size_t>(n));
    }
    Script script;
    {
        const std::lock_guard lock(mutex_);
        requests_.push_back(line);
        script = handler_(line);
    }
    for (std::size_t i = 0; i < script.chunks.size() && !stopping_; ++i) {
        if (i > 0 && script.gap.count() > 0 && waitForEnd(fd, int(script.gap.count())))
            break;
        if (::send(fd, script.chunks[i].data(), script.chunks[i].size(), MSG_NOSIGNAL) < 0)
            break;
    }
    while (script.hang && !waitForEnd(fd, 1000)) {
    }
    ::close(fd);
}

} // namespace harkline::test
