#pragma once

#include <QString>
#include <QStringList>

#include <chrono>
#include <sys/types.h>

namespace harkline {

// One run of the service manager's command-line tool.
struct ServiceCommand
{
    QString program;
    QStringList arguments;
    bool operator==(const ServiceCommand&) const = default;
};

// Starts the daemon's per-user service, or kills and restarts it. run() blocks until the tool
// exits, so it is only ever called on a background thread; it must be safe to call from several
// threads at once.
class ServiceManager
{
public:
    virtual ~ServiceManager() = default;
    // True exactly when the tool could be started and exited normally with status 0.
    virtual bool run(bool restart) = 0;
};

// The user's systemd instance, where `harkline install` puts the unit. The request is queued
// without waiting for the start job (--no-block): systemd refuses an unknown unit at once, and a
// daemon that fails while starting is the panel's business two seconds later, not a reason to
// call the service "not installed".
class SystemdServiceManager final : public ServiceManager
{
public:
    static constexpr const char* kUnit = "com.windmeric.harkline.service";

    // By absolute path: a PATH that the session or a shell profile changed must not pick the
    // program that runs. Tests point it elsewhere.
    explicit SystemdServiceManager(QString program = systemctlPath());

    // The first of /usr/bin/systemctl and /bin/systemctl that exists (the former when neither).
    static QString systemctlPath();

    ServiceCommand command(bool restart) const;
    bool run(bool restart) override;

private:
    QString m_program;
};

// The same request on macOS, where the service is a launchd agent. Kept so both service managers
// are described in one place; nothing on Linux runs it.
namespace launchd {
inline constexpr const char* kTool = "/bin/launchctl";
inline constexpr const char* kLabel = "com.windmeric.harkline";
ServiceCommand kickstart(bool restart, uid_t uid);
} // namespace launchd

// How long the tool may take before it is killed and counted as a failure. The request returns
// as soon as systemd has queued it; only a wedged user manager or bus takes longer.
inline constexpr std::chrono::milliseconds kServiceToolLimit{15000};

// Runs the program directly (no shell), its output and errors sent to the null device. Blocks
// until it exits, at most `limit`; true only for a normal exit with status 0. A program that
// cannot be started (missing, not executable) or runs past the limit is a failure, not an error.
bool runServiceCommand(const ServiceCommand& command,
                       std::chrono::milliseconds limit = kServiceToolLimit);

} // namespace harkline
