#pragma once

#include "shared/net/exchangeerror.h"

#include <QDateTime>
#include <QString>

#include <chrono>
#include <optional>

namespace http {

/// The result of one exchange.
struct ExchangeReport
{
    FailureKind kind = FailureKind::None;
    /// The received status; 0 for none, and for plain TCP.
    int status = 0;
    /// The error, as a Russian sentence without secrets; empty after success.
    QString text = {};
    /// The path of the request's address, without its query; empty for plain TCP.
    QString path = {};
    /// The server's name or address, without the port; empty for plain TCP.
    QString host = {};
    /// The client certificate that was used; empty for none.
    QString certificatePath = {};
    /// Its expiry time, in UTC; invalid if the file cannot be read.
    QDateTime certificateEnd = {};
    /// The till's clock minus the Date of the answer, in seconds; nothing without a valid Date.
    std::optional<std::chrono::seconds> clockDifference = {};
};

/// Receives the result of each exchange of a thread, in order, when the exchange has ended.
class ExchangeObserver
{
public:
    virtual void exchangeEnded(const ExchangeReport &report) = 0;

protected:
    ~ExchangeObserver() = default;
};

/// While it exists, its observer receives the results of this thread's exchanges, in place of the
/// previous observer. Lives on the stack of that thread.
class ExchangeObservation
{
public:
    explicit ExchangeObservation(ExchangeObserver &observer);
    ~ExchangeObservation();
    ExchangeObservation(const ExchangeObservation &) = delete;

private:
    ExchangeObserver *former;
};

/// Passes the report to the thread's observer, if any. For the clients in this folder.
void tellObserver(const ExchangeReport &report);

} // namespace http
