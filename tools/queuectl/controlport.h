#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

namespace queuectl {

/// The port of the service's control interface as the settings name it.
int controlPort();

/// Who is met on that port.
enum class PortState
{
    /// The service.
    Service,
    /// Somebody listens and does not answer as the service does: another program, or a service that hangs.
    Other,
    Nobody,
};

PortState controlPortState();

/// Asks the running service; `parts` are the parts of the path. Nothing when it does not answer in 5
/// seconds, or not with an object.
std::optional<QJsonObject> askService(const QStringList &parts);
/// The same, but throws Failure (NoService).
QJsonObject requireService(const QStringList &parts);

} // namespace queuectl
