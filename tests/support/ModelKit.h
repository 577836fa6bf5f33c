#pragma once

// An AppModel on fakes of the desktop and a scriptable daemon, for the model's and views' suites.

#include "AppModel.h"
#include "DaemonClient.h"
#include "Desktop.h"
#include "FakeDaemon.h"
#include "LoginItem.h"
#include "ServiceManager.h"
#include "TestHome.h"

#include <QSignalSpy>
#include <QStringList>
#include <QTest>

#include <atomic>
#include <memory>
#include <mutex>

namespace harkline::test {

struct FakeLoginItem final : LoginItem
{
    bool on = false;
    std::optional<QString> failure; // every change fails with this when set
    mutable int statusReads = 0;
    int registrations = 0;

    bool enabled() const override
    {
        ++statusReads;
        return on;
    }
    std::optional<QString> registerItem() override
    {
        ++registrations;
        return change(true);
    }
    std::optional<QString> unregisterItem() override { return change(false); }
    std::optional<QString> change(bool to)
    {
        on = failure ? on : to;
        return failure;
    }
};

struct FakeClipboard final : Clipboard
{
    QStringList texts;
    void setText(const QString& text) override { texts << text; }
};

struct FakeFileOpener final : FileOpener
{
    QStringList opened;
    void open(const QString& path) override { opened << path; }
};

struct CountingServiceManager final : ServiceManager
{
    std::atomic<bool> succeeds{true};
    std::atomic<int> runs{0};
    std::atomic<int> restarts{0};
    bool run(bool restart) override
    {
        ++runs;
        restarts += restart;
        return succeeds;
    }
};

// Every piece of the desktop a fake the test steers; no timer: tests call tick() themselves.
struct FakeDesktop
{
    bool visible = false;
    DaemonTime now = DaemonTime(std::chrono::seconds(1'700'000'000));
    std::shared_ptr<FakeLoginItem> loginItem = std::make_shared<FakeLoginItem>();
    std::shared_ptr<FakeClipboard> clipboard = std::make_shared<FakeClipboard>();
    std::shared_ptr<FakeFileOpener> fileOpener = std::make_shared<FakeFileOpener>();
    std::shared_ptr<CountingServiceManager> service = std::make_shared<CountingServiceManager>();

    AppModel::Environment environment()
    {
        AppModel::Environment env;
        env.menuVisible = [this] { return visible; };
        env.serviceManager = service;
        env.loginItem = loginItem;
        env.clipboard = clipboard;
        env.fileOpener = fileOpener;
        env.now = [this] { return now; };
        env.serviceSettle = std::chrono::milliseconds(50);
        env.serviceCheck = std::chrono::milliseconds(300);
        env.tickInterval = std::chrono::milliseconds(0);
        return env;
    }
};

inline bool settle(const AppModel& model, int timeoutMs = 8000)
{
    return QTest::qWaitFor([&] { return model.tasksInFlight() == 0; }, timeoutMs);
}

// Lets every posted event run to the end: layouts, and the window's fit after them.
inline bool settled()
{
    for (int i = 0; i < 10; ++i)
        QCoreApplication::processEvents();
    return true;
}

inline std::optional<QString> text(const char* s)
{
    return QString::fromUtf8(s);
}

inline double nowMs()
{
    using namespace std::chrono;
    return double(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

inline Json session(const char* id, const char* state, const char* title = "A title",
                    const char* project = "proj")
{
    return {{"id", id},           {"project", project}, {"title", title},  {"state", state},
            {"listening", false}, {"last_ts", nowMs()}, {"last_text", ""}, {"queued", 0}};
}

inline Json phone(const char* id, const char* name)
{
    return {{"id", id}, {"name", name}, {"created", nowMs() - 3600e3}};
}

// Replies the test changes as it goes; every command fails while `running` is false. One
// command's reply can be made slow, to hold its request in flight.
struct ScriptedDaemon
{
    std::mutex mutex;
    bool running = true;
    std::string slow; // the command answered half a second late
    Json status = {{"ok", true},   {"name", "harkline"},
                   {"port", 7420}, {"hosts", Json::array({"192.168.1.5"})},
                   {"devices", 0}, {"connected", 0},
                   {"pending", 0}};
    Json devices = Json::array();
    Json sessions = Json::array();
    Json pair = {{"ok", true}, {"qr", "hk1:pairing-payload"}, {"expires_in", 120}};
    Json other = {{"ok", true}}; // any other command's reply
    FakeDaemon daemon{DaemonClient::socketPath()};

    ScriptedDaemon()
    {
        daemon.setHandler([this](const std::string& line) {
            const std::lock_guard lock(mutex);
            const std::string cmd = FakeDaemon::commandOf(line);
            Json reply = {{"ok", running}};
            if (running && (cmd == "devices" || cmd == "sessions"))
                reply[cmd] = cmd == "devices" ? devices : sessions;
            else if (running)
                reply = cmd == "status" ? status : cmd == "pair" ? pair : other;
            auto script = FakeDaemon::Script::answer(reply);
            if (cmd == slow) // the first byte at once, the rest half a second later
                script = {{"{", script.chunks[0].substr(1)}, std::chrono::milliseconds(500)};
            return script;
        });
    }
    template <class F> void set(F change)
    {
        const std::lock_guard lock(mutex);
        change(*this);
    }
    int count(const std::string& cmd) const { return daemon.count(cmd); }
};

// A model on a scripted daemon in a temporary home, on the wall clock the pairing view counts by.
struct UiFixture
{
    TestHome home;
    ScriptedDaemon daemon;
    FakeDesktop desktop;
    std::unique_ptr<AppModel> model;

    UiFixture()
    {
        auto env = desktop.environment();
        env.now = [] { return DaemonTime(std::chrono::system_clock::now()); };
        model = std::make_unique<AppModel>(env);
        settle(*model);
    }
    bool refresh() // a detailed refresh, waited for
    {
        model->refresh(true);
        return settle(*model);
    }
};

} // namespace harkline::test
