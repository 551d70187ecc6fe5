#pragma once

#include <QList>
#include <QString>

#include <chrono>

/// What the process has under way, and until when it may take: a stop waits for a delivery as long
/// as that keeps within its own timeouts, and no longer for one that hangs. Thread: any; a guard
/// belongs to the thread that made it.
namespace inflight {

using Clock = std::chrono::steady_clock;

struct Delivery
{
    QString type;
    int messageId = 0;
    /// When what the delivery is doing now must have ended.
    Clock::time_point deadline;
};

/// Lives while the calling thread has a message in hand. What a handler does between two calls that
/// it waits for takes a moment; the guard allows some seconds for it.
class DeliveryGuard
{
public:
    DeliveryGuard(const QString &type, int messageId);
    ~DeliveryGuard();
    DeliveryGuard(const DeliveryGuard &) = delete;
    DeliveryGuard &operator=(const DeliveryGuard &) = delete;
};

/// Lives during a call that ends by itself within `limit`: an exchange, a program that is run, a
/// pause. Without a message in hand it means nothing.
class CallGuard
{
public:
    explicit CallGuard(std::chrono::milliseconds limit);
    ~CallGuard();
    CallGuard(const CallGuard &) = delete;
    CallGuard &operator=(const CallGuard &) = delete;

private:
    /// That of the call around this one.
    Clock::time_point outerDeadline;
};

QList<Delivery> deliveries();
/// Those that keep within their timeouts at the moment `now`.
QList<Delivery> deliveriesInTime(Clock::time_point now);

} // namespace inflight
