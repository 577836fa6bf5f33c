#include "FakeDaemon.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace harkline::test {

FakeDaemon::Script FakeDaemon::Script::answer(const Json& reply)
{
    return bytes(reply.dump() + "\n");
}

FakeDaemon::Script FakeDaemon::Script::bytes(std::string raw)
{
    Script script;
    script.chunks.push_back(std::move(raw));
    return script;
}

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
        ::listen(listenFd_, 64) != 0 || ::pipe2(wakePipe_, O_CLOEXEC) != 0)
        throw std::runtime_error("fake daemon cannot listen at " + path_ + ": " +
                                 std::strerror(errno));
    handler_ = [](const std::string&) { return Script::answer({{"ok", true}}); };
    acceptor_ = std::thread([this] { acceptLoop(); });
}

FakeDaemon::~FakeDaemon()
{
    stopping_ = true;
    (void)!::write(wakePipe_[1], "x", 1);
    acceptor_.join();
    for (std::thread& worker : workers_)
        worker.join();
    ::close(listenFd_);
    ::close(wakePipe_[0]);
    ::close(wakePipe_[1]);
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
        const std::string cmd = commandOf(line);
        for (const auto& [name, reply] : replies)
            if (name == cmd)
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
    const Json request = parseStrict(requestLine);
    const Json* cmd = member(request, "cmd");
    return cmd && cmd->is_string() ? cmd->get<std::string>() : std::string();
}

void FakeDaemon::acceptLoop()
{
    for (;;) {
        pollfd fds[2] = {{listenFd_, POLLIN, 0}, {wakePipe_[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0 && errno != EINTR)
            return;
        if (stopping_)
            return;
        if (!(fds[0].revents & POLLIN))
            continue;
        const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0)
            continue;
        ++connections_;
        const std::lock_guard lock(mutex_);
        workers_.emplace_back([this, fd] { serve(fd); });
    }
}

// Waits up to `ms` for the client to close or the fake to stop; true when either happened.
static bool waitForEnd(int fd, int wakeFd, int ms)
{
    pollfd fds[2] = {{fd, POLLIN | POLLRDHUP, 0}, {wakeFd, POLLIN, 0}};
    return ::poll(fds, 2, ms) > 0;
}

void FakeDaemon::serve(int fd)
{
    if (closeBeforeRead_) {
        ::close(fd);
        return;
    }
    std::string line;
    Script script;
    {
        char buffer[4096];
        pollfd fds[2] = {{fd, POLLIN, 0}, {wakePipe_[0], POLLIN, 0}};
        while (line.find('\n') == std::string::npos && !stopping_) {
            if (::poll(fds, 2, 5000) <= 0 || (fds[1].revents & POLLIN))
                break;
            const ssize_t n = ::read(fd, buffer, sizeof buffer);
            if (n <= 0)
                break;
            line.append(buffer, static_cast<std::size_t>(n));
        }
        const std::lock_guard lock(mutex_);
        requests_.push_back(line);
        script = handler_(line);
    }
    for (std::size_t i = 0; i < script.chunks.size() && !stopping_; ++i) {
        if (i > 0 && script.gap.count() > 0 &&
            waitForEnd(fd, wakePipe_[0], static_cast<int>(script.gap.count())))
            break;
        const std::string& chunk = script.chunks[i];
        if (::send(fd, chunk.data(), chunk.size(), MSG_NOSIGNAL) < 0)
            break;
    }
    while (script.hang && !stopping_ && !waitForEnd(fd, wakePipe_[0], 1000)) {
    }
    ::close(fd);
}

} // namespace harkline::test
