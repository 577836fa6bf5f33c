#pragma once

// A model fed by a scriptable fake daemon, for driving the views through the states people see.

#include "AppModel.h"
#include "DaemonClient.h"
#include "ModelTestKit.h"
#include "ServiceManager.h"
#include "TestHome.h"

#include <QDir>
#include <QTest>
#include <QWidget>

#include <memory>
#include <mutex>

namespace harkline::test {

// The service tool, counted and told whether to succeed.
struct CountingServiceManager final : ServiceManager
{
    std::atomic<bool> succeeds{true};
    std::atomic<int> runs{0};
    bool run(bool) override
    {
        ++runs;
        return succeeds;
    }
};

// Replies the test changes between refreshes; "status" fails while `running` is false.
struct ScriptedDaemon
{
    std::mutex mutex;
    bool running = true;
    Json status = {{"ok", true},   {"name", "harkline"},
                   {"port", 7420}, {"hosts", Json::array({"192.168.1.5"})},
                   {"devices", 0}, {"connected", 0},
                   {"pending", 0}};
    Json devices = Json::array();
    Json sessions = Json::array();
    Json pair = {{"ok", true}, {"qr", "hk1:pairing-payload"}, {"expires_in", 120}};
    FakeDaemon daemon{DaemonClient::socketPath()};

    ScriptedDaemon()
    {
        daemon.setHandler([this](const std::string& line) {
            const std::lock_guard lock(mutex);
            const std::string cmd = FakeDaemon::commandOf(line);
            if (!running)
                return FakeDaemon::Script::answer({{"ok", false}});
            if (cmd == "status")
                return FakeDaemon::Script::answer(status);
            if (cmd == "devices")
                return FakeDaemon::Script::answer({{"ok", true}, {"devices", devices}});
            if (cmd == "sessions")
                return FakeDaemon::Script::answer({{"ok", true}, {"sessions", sessions}});
            if (cmd == "pair")
                return FakeDaemon::Script::answer(pair);
            return FakeDaemon::Script::answer({{"ok", true}});
        });
    }
    template <class F> void set(F change)
    {
        const std::lock_guard lock(mutex);
        change(*this);
    }
};

inline double nowMs()
{
    return std::chrono::duration<double, std::milli>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
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

// One model against a fake daemon in a temporary home, its clock the real one (the pairing
// view counts down against the wall clock).
struct UiFixture
{
    TestHome home;
    ScriptedDaemon daemon;
    FakeDesktop desktop;
    std::shared_ptr<CountingServiceManager> service = std::make_shared<CountingServiceManager>();
    std::unique_ptr<AppModel> model;

    UiFixture()
    {
        desktop.now = DaemonTime(std::chrono::system_clock::now());
        auto env = desktop.environment();
        env.now = [] { return DaemonTime(std::chrono::system_clock::now()); };
        env.serviceManager = service;
        model = std::make_unique<AppModel>(env);
        settle(*model);
    }
    // A detailed refresh, waited for.
    bool refresh()
    {
        model->refresh(true);
        return settle(*model);
    }
};

// Saves a picture of `widget` when HARKLINE_UI_SHOTS names a folder: how the states were looked
// at while building them.
inline void saveShot(QWidget* widget, const QString& name)
{
    const QString dir = qEnvironmentVariable("HARKLINE_UI_SHOTS");
    if (dir.isEmpty())
        return;
    QDir().mkpath(dir);
    widget->grab().save(dir + QLatin1Char('/') + name + QStringLiteral(".png"));
}

} // namespace harkline::test
