#pragma once

#include "Json.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace harkline::test {

// A stand-in for the daemon on its own threads: a handler scripts each connection from its request.
class FakeDaemon
{
public:
    struct Script
    {
        std::vector<std::string> chunks;  // written one write each, in order
        std::chrono::milliseconds gap{0}; // pause between chunks
        bool hang = false; // then keep the connection until the client closes or the fake stops
        static Script answer(const Json& reply) { return bytes(reply.dump() + "\n"); }
        static Script bytes(std::string raw) { return {{std::move(raw)}}; }
        static Script closeWithoutAnswer() { return {}; }
        static Script never() { return {{}, {}, true}; }
    };
    using Handler = std::function<Script(const std::string& requestLine)>;

    // Listens at `path` (made with its folders); replaces whatever file stood there.
    explicit FakeDaemon(std::string path);
    ~FakeDaemon();

    void setHandler(Handler handler);
    void setScript(const Script& script) // the same for every connection
    {
        setHandler([script](const std::string&) { return script; });
    }
    // Accept connections and close them at once, before reading the request.
    void setCloseBeforeRead(bool on) { closeBeforeRead_ = on; }

    std::vector<std::string> requests() const; // request lines received, newline included
    int count(const std::string& cmd) const;   // requests received with that "cmd"
    int connections() const { return connections_; }
    static std::string commandOf(const std::string& requestLine); // "cmd", or empty
    // Leaves a socket file at `path` that nobody listens on, as a daemon that died does.
    static bool leaveStaleSocket(const std::string& path);

private:
    void serve(int fd);

    std::string path_;
    int listenFd_ = -1;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> closeBeforeRead_{false};
    std::atomic<int> connections_{0};
    mutable std::mutex mutex_;
    Handler handler_;
    std::vector<std::string> requests_;
    std::set<int> open_; // the connections being served
    std::vector<std::thread> workers_;
    std::thread acceptor_;
};

} // namespace harkline::test
