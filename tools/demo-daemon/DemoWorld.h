#pragma once

#include "Json.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace harkline::demo {

using Clock = std::chrono::system_clock;

// A pretend harkline daemon: a handful of Claude Code sessions that move between "working",
// "waiting" and "ended" as the clock runs, a couple of phones, and pairing offers that a simulated
// phone accepts a few seconds after they were made. Sessions are computed from the time elapsed
// since start, so the data keeps moving without a thread of its own.
class DemoWorld
{
public:
    static constexpr int kOfferSeconds = 120;

    static constexpr int kScripts = 5;

    // `sessions` beyond the five scripted ones repeat their scripts under other ids and
    // projects; `phones` beyond the first two are named "Test phone 3" and so on.
    DemoWorld(Clock::time_point start, std::chrono::seconds pairDelay, std::FILE* log,
              int sessions = kScripts, int phones = 2)
        : start_(start), pairDelay_(pairDelay), log_(log), sessionCount_(sessions),
          random_(std::random_device{}())
    {
        using namespace std::chrono;
        phones_.push_back({"7c1e5a90b3d24f68", "Pixel 8", ms(start - days(12) - hours(5)), true});
        phones_.push_back({"e29d04b7a6f1c352", "Léa’s iPhone", ms(start - minutes(200)), false});
        phones_.resize(std::size_t(std::max(phones, 0)), {});
        for (int i = 2; i < phones; ++i)
            phones_[std::size_t(i)] = {randomHex(8), "Test phone " + std::to_string(i + 1),
                                       ms(start - hours(i)), i % 2 == 0};
    }

    // One request line in, one reply object out. Safe to call from any thread.
    Json answer(std::string_view line, Clock::time_point now)
    {
        const Json request = Json::parse(line, nullptr, /*allow_exceptions=*/false);
        if (request.is_discarded())
            return failure("request is not valid JSON");
        if (!request.is_object())
            return failure("request must be a JSON object");
        const Json* cmd = member(request, "cmd");
        if (!cmd || !cmd->is_string())
            return failure("request needs a \"cmd\" string");
        const std::string& name = cmd->get_ref<const std::string&>();

        const std::lock_guard lock(mutex_);
        settleOffer(now);
        if (name == "status")
            return status(now);
        if (name == "devices")
            return devices();
        if (name == "sessions")
            return {{"ok", true}, {"sessions", sessions(now)}};
        if (name == "pair")
            return pair(now);
        if (name == "revoke")
            return revoke(member(request, "id"));
        if (name == "emit")
            return emit(member(request, "event"));
        return failure("unknown command \"" + name + "\"");
    }

private:
    struct Step
    {
        const char* state; // nullptr: the session does not exist during this step
        int seconds;
        const char* text;
        bool listening;
        int queued;
    };
    struct Script
    {
        const char* project;
        const char* title;
        int offset; // seconds into the cycle at start, so the sessions do not move in step
        std::vector<Step> steps;
    };

    struct Phone
    {
        std::string id;
        std::string name;
        std::int64_t created; // ms since the epoch
        bool connected;
    };
    struct Offer
    {
        Clock::time_point issued;
        std::string token;
    };

    // Each script repeats; a new cycle is a new session (new id), as when Claude Code restarts.
    static const std::vector<Script>& scripts()
    {
        static const std::vector<Script> all = {
            {"harkline",
             "Fix reconnect backoff in the relay",
             96,
             {{"working", 18, "Reading relay/backoff.rs and the reconnect tests", true, 0},
              {"working", 14, "Running cargo test --workspace (212 tests)", true, 0},
              {"waiting", 25, "Allow Bash: cargo test --release -- --ignored reconnect?", true, 0},
              {"working", 16, "Capping the delay at 30 s and resetting it after a clean minute",
               true, 1},
              {"ended", 75,
               "Done. The backoff now caps at 30 s and resets after a minute of clean uptime; the "
               "flaky reconnect test passed 50 runs in a row. I also noticed that the relay logs "
               "the full pairing token at debug level, which is worth a separate look before the "
               "next release.",
               false, 0}}},
            {"harkline-menubar",
             "",
             116,
             {{"waiting", 30, "Should the sessions list keep ended sessions, or hide them?", true,
               2},
              {"working", 20, "Sorting sessions: waiting first, then by last activity", true, 0},
              {"working", 15, "", true, 0},
              {"ended", 75,
               "Sessions are sorted now; 3 files changed, 41 insertions, 12 deletions.", false,
               0}}},
            {"dotfiles",
             "Tidy the zsh prompt ✨",
             43,
             {{"working", 12, "Prompt shows ✓ or ✗ for the last exit status; “git” segment trimmed",
               false, 0},
              {"waiting", 18, "Replace the async plugin with zsh-defer? (y/n)", false, 0},
              {"working", 20, "Résumé: moved the aliases to ~/.config/zsh/aliases.zsh", false, 0},
              {"ended", 60, "", false, 0}}},
            {"website",
             "Übersetzung der Startseite",
             81,
             {{"working", 15, "Übersetze hero.md und pricing.md …", true, 0},
              {"waiting", 35, "Die Startseite ist übersetzt. Soll ich die Preisseite auch machen?",
               true, 1},
              {"working", 20, "Preisseite: 14 von 22 Absätzen übersetzt", true, 0},
              {"ended", 40, "Fertig 🚀 Beide Seiten übersetzt, alle Links geprüft.", false, 0}}},
            {"notes",
             "要約: 週次ミーティング",
             50,
             {{nullptr, 30, "", false, 0},
              {"working", 20, "議事録を読み込んでいます…", true, 0},
              {"waiting", 20, "要約の長さはどのくらいにしますか？", true, 0},
              {"ended", 40, "3行の要約を作成しました。", false, 0}}},
        };
        return all;
    }

    static std::int64_t ms(Clock::time_point t)
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(t.time_since_epoch()).count();
    }

    static Json failure(const std::string& error) { return {{"ok", false}, {"error", error}}; }

    // A stable, UUID-shaped id per script and cycle.
    static std::string sessionId(std::size_t slot, long long cycle)
    {
        auto mix = [](std::uint64_t z) {
            z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
            z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
            return z ^ (z >> 31);
        };
        const std::uint64_t a =
            mix((slot + 1) * 0x9e3779b97f4a7c15ULL + static_cast<std::uint64_t>(cycle));
        const std::uint64_t b = mix(a);
        char text[40];
        std::snprintf(text, sizeof text, "%08x-%04x-4%03x-%04x-%012llx",
                      static_cast<unsigned>(a >> 32), static_cast<unsigned>((a >> 16) & 0xffff),
                      static_cast<unsigned>(a & 0xfff),
                      static_cast<unsigned>(((b >> 48) & 0x3fff) | 0x8000),
                      static_cast<unsigned long long>(b & 0xffffffffffffULL));
        return text;
    }

    std::string randomHex(int bytes)
    {
        static constexpr char digits[] = "0123456789abcdef";
        std::string text;
        for (int i = 0; i < bytes; ++i) {
            const auto byte = static_cast<unsigned>(random_() & 0xff);
            text += digits[byte >> 4];
            text += digits[byte & 0xf];
        }
        return text;
    }

    void log(const std::string& line)
    {
        if (!log_)
            return;
        std::fprintf(log_, "%s\n", line.c_str());
        std::fflush(log_);
    }

    Json sessions(Clock::time_point now) const
    {
        using std::chrono::seconds;
        const long long elapsed =
            std::max<long long>(0, std::chrono::duration_cast<seconds>(now - start_).count());
        Json list = Json::array();
        for (std::size_t slot = 0; slot < std::size_t(std::max(sessionCount_, 0)); ++slot) {
            const Script& script = scripts()[slot % scripts().size()];
            const std::size_t round = slot / scripts().size();
            long long cycleLength = 0;
            for (const Step& step : script.steps)
                cycleLength += step.seconds;
            const long long offset = script.offset + 37 * static_cast<long long>(round);
            const long long local = elapsed + offset;
            const long long cycle = local / cycleLength;
            long long stepStart = 0;
            const Step* step = &script.steps.front();
            for (const Step& candidate : script.steps) {
                step = &candidate;
                if (local % cycleLength < stepStart + candidate.seconds)
                    break;
                stepStart += candidate.seconds;
            }
            if (!step->state)
                continue;
            const auto begun = start_ + seconds(cycle * cycleLength + stepStart - offset);
            list.push_back({{"id", sessionId(slot, cycle)},
                            {"project", round == 0 ? std::string(script.project)
                                                   : script.project + std::string("-") +
                                                         std::to_string(round + 1)},
                            {"title", script.title},
                            {"state", step->state},
                            {"listening", step->listening},
                            {"last_ts", ms(begun)},
                            {"last_text", step->text},
                            {"queued", step->queued}});
        }
        return list;
    }

    Json status(Clock::time_point now) const
    {
        const Json list = sessions(now);
        const auto pending = std::count_if(list.begin(), list.end(), [](const Json& session) {
            return session["state"] == "waiting";
        });
        const auto connected = std::count_if(phones_.begin(), phones_.end(),
                                             [](const Phone& phone) { return phone.connected; });
        return {{"ok", true},
                {"name", "harkline demo"},
                {"port", kPort},
                {"hosts", {kHost, "demo-laptop.local"}},
                {"devices", phones_.size()},
                {"connected", connected},
                {"pending", pending}};
    }

    Json devices() const
    {
        Json list = Json::array();
        for (const Phone& phone : phones_)
            list.push_back({{"id", phone.id}, {"name", phone.name}, {"created", phone.created}});
        return {{"ok", true}, {"devices", list}};
    }

    Json pair(Clock::time_point now)
    {
        // A new offer replaces the one still open, as a daemon issues one token at a time.
        offer_ = Offer{now, randomHex(16)};
        const std::string payload = std::string("harkline://pair?host=") + kHost +
                                    "&port=" + std::to_string(kPort) + "&token=" + offer_->token;
        log("pair: offer made, a phone will pair in " + std::to_string(pairDelay_.count()) + " s");
        return {{"ok", true}, {"qr", payload}, {"expires_in", kOfferSeconds}};
    }

    // The simulated phone scans the code pairDelay after the offer, if the offer still holds.
    void settleOffer(Clock::time_point now)
    {
        if (!offer_)
            return;
        const auto scanned = offer_->issued + pairDelay_;
        const auto expires = offer_->issued + std::chrono::seconds(kOfferSeconds);
        if (scanned < expires && now >= scanned) {
            static constexpr const char* names[] = {"Pixel 7a", "Galaxy S24", "iPhone SE",
                                                    "Moto g84"};
            std::string name = names[pairedCount_ % std::size(names)];
            if (pairedCount_ >= std::size(names))
                name += " (" + std::to_string(pairedCount_ / std::size(names) + 1) + ")";
            ++pairedCount_;
            phones_.push_back({randomHex(8), name, ms(scanned), true});
            log("pair: " + name + " paired as " + phones_.back().id);
            offer_.reset();
        } else if (now >= expires) {
            log("pair: offer expired");
            offer_.reset();
        }
    }

    Json revoke(const Json* id)
    {
        if (!id || !id->is_string())
            return failure("revoke needs an \"id\" string");
        const std::string& wanted = id->get_ref<const std::string&>();
        const auto found = std::find_if(phones_.begin(), phones_.end(),
                                        [&](const Phone& phone) { return phone.id == wanted; });
        if (found == phones_.end())
            return failure("no paired phone has the id \"" + wanted + "\"");
        log("revoke: " + found->name + " (" + found->id + ") unpaired");
        phones_.erase(found);
        return {{"ok", true}};
    }

    Json emit(const Json* event)
    {
        if (!event || !event->is_object())
            return failure("emit needs an \"event\" object");
        ++emitted_;
        const Json* message = member(*event, "message");
        log("emit #" + std::to_string(emitted_) + ": " +
            (message && message->is_string() ? message->get<std::string>() : "(no message)"));
        return {{"ok", true}, {"emitted", emitted_}};
    }

    static constexpr const char* kHost = "192.168.1.23";
    static constexpr int kPort = 7420;

    const Clock::time_point start_;
    const std::chrono::seconds pairDelay_;
    std::FILE* const log_;
    const int sessionCount_;

    std::mutex mutex_; // guards everything below
    std::mt19937_64 random_;
    std::vector<Phone> phones_;
    std::optional<Offer> offer_;
    std::size_t pairedCount_ = 0;
    long long emitted_ = 0;
};

} // namespace harkline::demo
