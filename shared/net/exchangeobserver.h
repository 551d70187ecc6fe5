#pragma once

#include "shared/net/exchangeerror.h"

#include <QDateTime>
#include <QString>

#include <chrono>
#include <optional>

namespace http {

/// What one exchange came to.
struct ExchangeReport
{
    FailureKind kind = FailureKind::None;
    /// The status that arrived; 0 when none did, and for plain TCP.
    int status = 0;
    /// What went wrong, in a Russian sentence without secrets; empty after a clean exchange.
    QString text = {};
    /// The path of the request's address, without its query; empty for plain TCP.
    QString path = {};
    /// The name or the address of the server, without the port; empty for plain TCP.
    QString host = {};
    /// The file of the client certificate that was used; empty for none.
    QString certificatePath = {};
    /// When that certificate ends, in UTC; invalid when the file does not tell.
    QDateTime certificateEnd = {};
    /// The till's clock minus the Date of the answer, to the second; nothing when no readable Date
    /// came.
    std::optional<std::chrono::seconds> clockDifference = {};
};

/// Is told of the exchanges that a thread makes, in their order, as each has ended.
class ExchangeObserver
{
public:
    virtual void exchangeEnded(const ExchangeReport &report) = 0;

protected:
    ~ExchangeObserver() = default;
};

/// While it lives, its observer is told of this thread's exchanges, and the one before it is not.
/// On the stack of the thread that makes the exchanges.
class ExchangeObservation
{
public:
    explicit ExchangeObservation(ExchangeObserver &observer);
    ~ExchangeObservation();
    ExchangeObservation(const ExchangeObservation &) = delete;

private:
    ExchangeObserver *former;
};

/// Tells the thread's observer, if it has one. For the clients of this folder.
void tellObserver(const ExchangeReport &report);

} // namespace http
