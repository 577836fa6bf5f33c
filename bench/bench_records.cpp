// Time to turn a large "sessions" reply into records, next to the bare parse of the same bytes;
// and the same reply with one title cut inside an emoji (a lone surrogate escape), which the
// strict parse refuses and the repair mends before a second parse.
#include "BenchUtil.h"
#include "DaemonClient.h"

#include <string>

using namespace harkline;

static std::string sessionsReply(int count)
{
    Json sessions = Json::array();
    for (int i = 0; i < count; ++i) {
        sessions.push_back({{"id", "session-" + std::to_string(i)},
                            {"project", "project-" + std::to_string(i % 37)},
                            {"title", "Refactor the module number " + std::to_string(i)},
                            {"state", i % 3 == 0 ? "waiting" : "working"},
                            {"listening", i % 2 == 0},
                            {"last_ts", 1700000000000.0 + i * 1000.5},
                            {"last_text", std::string(200 + i % 300, 'x') + " — ünïcode"},
                            {"queued", i % 4}});
    }
    return Json({{"ok", true}, {"sessions", sessions}}).dump() + "\n";
}

int main()
{
    const int kSessions = 10000;
    const int kRounds = 21;
    const std::string reply = sessionsReply(kSessions);
    std::printf("reply: %d sessions, %.2f MB\n", kSessions, double(reply.size()) / 1e6);
    std::string cut = reply;
    const std::string title = "Refactor the module number 9999";
    cut.replace(cut.find(title), title.size(), title + "\\ud83d");

    std::vector<double> bare, records, mended;
    std::size_t sink = 0;
    for (int round = 0; round < kRounds; ++round) {
        // Alternate the two so that noise on this shared machine hits both alike.
        auto start = bench::Clock::now();
        Json parsed = Json::parse(reply);
        bare.push_back(bench::microsecondsSince(start));
        sink += parsed.size();

        start = bench::Clock::now();
        std::optional<Json> strict = parseReply(reply);
        const auto sessions = DaemonClient::sessionsFrom(strict);
        records.push_back(bench::microsecondsSince(start));
        sink += sessions.size();

        // Named, like the others, so that freeing the tree stays out of the time taken.
        start = bench::Clock::now();
        std::optional<Json> repaired = parseReply(cut);
        const auto fromCut = DaemonClient::sessionsFrom(repaired);
        mended.push_back(bench::microsecondsSince(start));
        sink += fromCut.size();
    }
    if (sink != std::size_t(kRounds) * (2 + 2 * kSessions))
        return 1;
    bench::report("parse + build records (median)", bench::median(records) / 1000, "bare parse",
                  bench::median(bare) / 1000, "ms");
    bench::report("the same, one lone surrogate", bench::median(mended) / 1000, "bare parse",
                  bench::median(bare) / 1000, "ms");
    return 0;
}
