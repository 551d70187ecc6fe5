#pragma once

#include <QList>
#include <QString>

#include <chrono>

/// The deliveries in progress and their deadlines. A shutdown waits for a delivery while it is
/// within its own timeouts, and no longer. Thread: any; a guard belongs to the thread that made it.
namespace inflight {

using Clock = std::chrono::steady_clock;

struct Delivery
{
    QString type;
    int messageId = 0;
    /// When the delivery's current step must have ended.
    Clock::time_point deadline;
};

/// Exists while the calling thread delivers a message. The guard allows some seconds for the
/// handler's work between two blocking calls.
class DeliveryGuard
{
public:
    DeliveryGuard(const QString &type, int messageId);
    ~DeliveryGuard();
    DeliveryGuard(const DeliveryGuard &) = delete;
    DeliveryGuard &operator=(const DeliveryGuard &) = delete;
};

/// Exists during a call that ends within `limit`: an exchange, a child process, a pause. Outside a
/// delivery it has no effect.
class CallGuard
{
public:
    explicit CallGuard(std::chrono::milliseconds limit);
    ~CallGuard();
    CallGuard(const CallGuard &) = delete;
    CallGuard &operator=(const CallGuard &) = delete;

private:
    /// The deadline of the enclosing call.
    Clock::time_point outerDeadline;
};

QList<Delivery> deliveries();
/// The deliveries whose deadline is after `now`.
QList<Delivery> deliveriesInTime(Clock::time_point now);

} // namespace inflight
