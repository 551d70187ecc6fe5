#pragma once

#include "tools/queuectl/failure.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

namespace queuectl {

constexpr int maxPort = 65535;

/// The port of the service's control interface as the settings name it.
int controlPort();

/// Who is met on that port.
enum class PortState
{
    /// The service.
    Service,
    /// The port is open, but the answer is not the service's: another program listens, or the
    /// service hangs.
    Other,
    Nobody,
};

/// What came of asking who is met.
struct ServiceAnswer
{
    PortState state = PortState::Nobody;
    /// Of the service: how many database errors it has met.
    int errorsCount = 0;
};

ServiceAnswer lookAtService();
PortState controlPortState();

/// What came of asking the service to start a worker.
struct StartAnswer
{
    enum class State
    {
        Started,
        WasRunning,
        /// The service is a stand-by, has no handler of the type, or runs as many workers as it
        /// may.
        Refused,
        NoAnswer,
    } state = State::NoAnswer;
    /// The text of the service.
    QString text;
};

/// Asks the service to try the rows of the type now; without a card, one of none is named.
StartAnswer askStart(const QString &type, const QString &cardNumber = QString());

/// Asks the running service; `parts` are the parts of the path. Nothing when it does not answer in
/// 5 seconds, or not with an object.
std::optional<QJsonObject> askService(const QStringList &parts);
/// That it does not answer.
Failure noService();
/// The same as askService(), but throws noService().
QJsonObject requireService(const QStringList &parts);

} // namespace queuectl
