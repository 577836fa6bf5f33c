#include "ServiceManager.h"

#include <QFileInfo>
#include <QProcess>

namespace harkline {

SystemdServiceManager::SystemdServiceManager(QString program) : m_program(std::move(program))
{}

QString SystemdServiceManager::systemctlPath()
{
    for (const char* path : {"/usr/bin/systemctl", "/bin/systemctl"})
        if (QFileInfo(QLatin1String(path)).isExecutable())
            return QLatin1String(path);
    return QStringLiteral("/usr/bin/systemctl");
}

ServiceCommand SystemdServiceManager::command(bool restart) const
{
    return {m_program,
            {QStringLiteral("--user"), QStringLiteral("--no-block"),
             restart ? QStringLiteral("restart") : QStringLiteral("start"),
             QString::fromLatin1(kUnit)}};
}

bool SystemdServiceManager::run(bool restart)
{
    return runServiceCommand(command(restart));
}

ServiceCommand launchd::kickstart(bool restart, uid_t uid)
{
    const QString target = QStringLiteral("gui/%1/%2").arg(uid).arg(QLatin1String(kLabel));
    QStringList arguments{QStringLiteral("kickstart")};
    if (restart)
        arguments << QStringLiteral("-k");
    arguments << target;
    return {QString::fromLatin1(kTool), arguments};
}

bool runServiceCommand(const ServiceCommand& command, std::chrono::milliseconds limit)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(command.program, command.arguments);
    if (!process.waitForStarted(-1))
        return false;
    if (!process.waitForFinished(int(limit.count()))) {
        process.kill();
        process.waitForFinished(-1); // reaped, so no zombie is left behind
        return false;
    }
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

} // namespace harkline
