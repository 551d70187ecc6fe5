#pragma once

#include <QString>

namespace queuectl {

/// Why a row waits.
enum class Cause
{
    /// The address cannot be reached, or the exchange was interrupted.
    Network,
    Certificate,
    /// The service does not accept the till's account or key.
    Credentials,
    /// The service does not accept the request.
    Request,
    /// The service reports an error of its own.
    Service,
    /// It has not been tried yet and waits for its turn.
    Turn,
    /// It is not known whether it has been tried.
    Unknown,
    /// The service has no handler for this type.
    NoHandler,
    /// The body is not a JSON object.
    Body,
    /// It was delivered or dropped, but its row is still there or is there again.
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
