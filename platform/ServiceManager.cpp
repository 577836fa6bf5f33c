#include "ServiceManager.h"

#include <QProcess>

namespace harkline {

SystemdServiceManager::SystemdServiceManager(QString program) : m_program(std::move(program))
{}

ServiceCommand SystemdServiceManager::command(bool restart) const
{
    return {m_program,
            {QStringLiteral("--user"),
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

bool runServiceCommand(const ServiceCommand& command)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(command.program, command.arguments);
    if (!process.waitForStarted(-1))
        return false;
    // No limit: systemctl returns once the start job has finished, and only the tool knows how
    // long that may take. The caller is a background thread, never the interface.
    process.waitForFinished(-1);
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

} // namespace harkline
