// Round trip of ok({"cmd":"status"}) against the simulated daemon, next to a minimal raw client
// (connect, write, read, close) against the same daemon in the same run.
#include "BenchUtil.h"
#include "DaemonClient.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <signal.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace harkline;

static bool rawRoundTrip(const std::string& path)
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    static const char request[] = "{\"cmd\":\"status\"}\n";
    ok = ok && ::write(fd, request, sizeof request - 1) == ssize_t(sizeof request - 1);
    char buffer[65536];
    std::size_t got = 0;
    while (ok) {
        const ssize_t n = ::read(fd, buffer + got, sizeof buffer - got);
        if (n <= 0)
            break;
        got += std::size_t(n);
        if (std::memchr(buffer, '\n', got))
            break;
    }
    ::close(fd);
    return ok && got > 0;
}

int main(int argc, char** argv)
{
    const int kRounds = argc > 1 ? std::atoi(argv[1]) : 2000;
    char home[] = "/tmp/harkline-bench-XXXXXX";
    if (!::mkdtemp(home))
        return 1;
    ::setenv("HOME", home, 1);

    const pid_t daemon = ::fork();
    if (daemon == 0) {
        ::execl(DEMO_DAEMON, DEMO_DAEMON, static_cast<char*>(nullptr));
        ::_exit(127);
    }
    bool up = false;
    for (int i = 0; i < 200 && !up; ++i) {
        up = DaemonClient::ok(DaemonClient::status()).has_value();
        if (!up)
            std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    int status = 1;
    if (up) {
        const std::string path = DaemonClient::socketPath();
        std::vector<double> client, raw;
        bool allOk = true;
        for (int i = 0; i < kRounds; ++i) {
            auto start = bench::Clock::now();
            allOk &= DaemonClient::ok(DaemonClient::status()).has_value();
            client.push_back(bench::microsecondsSince(start));
            start = bench::Clock::now();
            allOk &= rawRoundTrip(path);
            raw.push_back(bench::microsecondsSince(start));
        }
        if (allOk) {
            std::printf("%d round trips each against the simulated daemon\n", kRounds);
            bench::report("ok(status) round trip (median)", bench::median(client), "raw client",
                          bench::median(raw), "us");
            status = 0;
        } else {
            std::fprintf(stderr, "some exchanges failed\n");
        }
    } else {
        std::fprintf(stderr, "the simulated daemon did not answer\n");
    }
    ::kill(daemon, SIGTERM);
    ::waitpid(daemon, nullptr, 0);
    std::filesystem::remove_all(home);
    return status;
}
