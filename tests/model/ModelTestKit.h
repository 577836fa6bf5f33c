#pragma once

// Fakes of the desktop pieces the model uses, and small helpers shared by the model's suites.

#include "AppModel.h"
#include "Desktop.h"
#include "FakeDaemon.h"
#include "LoginItem.h"
#include "ServiceManager.h"

#include <QSignalSpy>
#include <QStringList>
#include <QTest>

#include <atomic>
#include <memory>

namespace harkline::test {

struct FakeLoginItem final : LoginItem
{
    bool on = false;
    std::optional<QString> failure; // every change fails with this when set
    mutable int statusReads = 0;
    int registrations = 0;
    std::function<void()> duringRegistration;

    bool enabled() const override
    {
        ++statusReads;
        return on;
    }
    std::optional<QString> registerItem() override
    {
        ++registrations;
        if (duringRegistration)
            duringRegistration();
        if (!failure)
            on = true;
        return failure;
    }
    std::optional<QString> unregisterItem() override
    {
        if (!failure)
            on = false;
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

// The desktop as the tests see it: every piece a fake the test can steer.
struct FakeDesktop
{
    bool visible = false;
    DaemonTime now = DaemonTime(std::chrono::seconds(1'700'000'000));
    std::shared_ptr<FakeLoginItem> loginItem = std::make_shared<FakeLoginItem>();
    std::shared_ptr<FakeClipboard> clipboard = std::make_shared<FakeClipboard>();
    std::shared_ptr<FakeFileOpener> fileOpener = std::make_shared<FakeFileOpener>();

    // The timer is left off: tests call tick() themselves.
    AppModel::Environment environment()
    {
        AppModel::Environment env;
        env.menuVisible = [this] { return visible; };
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

// Waits until every task the model started has applied its result.
inline bool settle(const AppModel& model, int timeoutMs = 8000)
{
    return QTest::qWaitFor([&] { return model.tasksInFlight() == 0; }, timeoutMs);
}

// Records, in order, which published property was assigned.
struct Assignments
{
    QStringList names;
    explicit Assignments(AppModel& model)
    {
        QObject::connect(&model, &AppModel::statusChanged, [this] { names << "status"; });
        QObject::connect(&model, &AppModel::devicesChanged, [this] { names << "devices"; });
        QObject::connect(&model, &AppModel::sessionsChanged, [this] { names << "sessions"; });
        QObject::connect(&model, &AppModel::pairingChanged, [this] { names << "pairing"; });
        QObject::connect(&model, &AppModel::noticeChanged, [this] { names << "notice"; });
    }
};

inline int countCommand(const FakeDaemon& daemon, const std::string& cmd)
{
    int n = 0;
    for (const std::string& line : daemon.requests())
        n += FakeDaemon::commandOf(line) == cmd;
    return n;
}

// A reply that arrives `delay` after the request: the first byte at once, the rest later.
inline FakeDaemon::Script slowAnswer(const Json& reply, std::chrono::milliseconds delay)
{
    const std::string text = reply.dump() + "\n";
    FakeDaemon::Script script;
    script.chunks = {text.substr(0, 1), text.substr(1)};
    script.gap = delay;
    return script;
}

inline std::optional<QString> text(const char* s)
{
    return QString::fromUtf8(s);
}

} // namespace harkline::test
