#pragma once

#include <QString>

namespace queuectl {

/// Why a row waits.
enum class Cause
{
    /// The address cannot be reached, or the exchange broke off.
    Network,
    Certificate,
    /// The service does not accept the till's account or key.
    Credentials,
    /// The service does not accept the request.
    Request,
    /// The service has trouble of its own.
    Service,
    /// It has not been tried, and its turn comes.
    Turn,
    /// Nothing tells whether it has been tried.
    Unknown,
    /// Nobody delivers messages of this type.
    NoHandler,
    /// The body is no JSON object.
    Body,
    /// It was finished with, and its row is there again or still.
    Repeat,
    Other,
};

/// The cause behind a kind of failure as the service has written it down.
Cause causeOfKind(const QString &kind);
/// The name in the JSON form.
QString causeName(Cause cause);
/// For the operator.
QString causeText(Cause cause);

/// Who has to do something about it.
enum class Actor
{
    Nobody,
    /// Who runs the till: starts services, reads logs.
    Engineer,
    /// Who writes the program that writes the rows.
    Integrator,
    Network,
    Certificates,
    /// Who manages the till's account with the service.
    Account,
    /// Who operates the service.
    Operator,
};

Actor actorOf(Cause cause);
/// The name in the JSON form.
QString actorName(Actor actor);
/// For the operator.
QString actorTitle(Actor actor);

} // namespace queuectl
