#include "PhoneActions.h"

#include "DaemonClient.h"
#include "DisplayText.h"

#include <QCoreApplication>

namespace harkline {

bool revokeWork(const std::string& deviceId)
{
    return DaemonClient::ok(DaemonClient::revoke(deviceId)).has_value();
}

QString revokeNotice(std::string_view name, bool removed)
{
    const QString shown = daemonText(name);
    return removed ? QCoreApplication::translate("PhoneActions", "Removed %1.").arg(shown)
                   : QCoreApplication::translate("PhoneActions", "Could not remove %1.").arg(shown);
}

std::optional<std::int64_t> sendTestWork()
{
    if (!DaemonClient::ok(DaemonClient::emitTest()))
        return std::nullopt;
    return DaemonClient::connectedFrom(DaemonClient::ok(DaemonClient::status()));
}

QString sendTestNotice(std::optional<std::int64_t> connected)
{
    if (!connected)
        return QCoreApplication::translate("PhoneActions", "The service is not running.");
    if (*connected == 0)
        return QCoreApplication::translate("PhoneActions",
                                           "Sent, but no phone is connected right now.");
    if (*connected == 1)
        return QCoreApplication::translate("PhoneActions", "Test notification sent to %1 phone.")
            .arg(*connected);
    return QCoreApplication::translate("PhoneActions", "Test notification sent to %1 phones.")
        .arg(*connected);
}

} // namespace harkline
