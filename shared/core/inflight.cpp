#include "shared/core/inflight.h"

#include "shared/core/guarded.h"

#include <algorithm>
#include <map>
#include <thread>

namespace inflight {

namespace {

using Table = Guarded<std::map<std::thread::id, Delivery>>;

/// Allowance between two calls on a busy machine.
constexpr auto grace = std::chrono::seconds(5);
/// Longer than any delivery, and small enough to be added to a time_point.
constexpr auto maxLimit = std::chrono::milliseconds(std::chrono::hours(24 * 30));

/// Never destroyed: a worker may outlive main().
Table &table()
{
    static auto *const instance = new Table;
    return *instance;
}

} // namespace

DeliveryGuard::DeliveryGuard(const QString &type, int messageId)
{
    const Clock::time_point deadline = Clock::now() + grace;
    table().lock()->insert_or_assign(std::this_thread::get_id(),
                                     Delivery{type, messageId, deadline});
}

DeliveryGuard::~DeliveryGuard()
{
    table().lock()->erase(std::this_thread::get_id());
}

CallGuard::CallGuard(std::chrono::milliseconds limit)
{
    // The call's own timer starts later and is not exact.
    const Clock::time_point deadline = Clock::now() + std::min(limit, maxLimit) + grace;
    const auto deliveries = table().lock();
    const auto delivery = deliveries->find(std::this_thread::get_id());
    if (delivery == deliveries->end())
        return;
    outerDeadline = delivery->second.deadline;
    delivery->second.deadline = std::max(deadline, outerDeadline);
}

CallGuard::~CallGuard()
{
    const Clock::time_point deadline = Clock::now() + grace;
    const auto deliveries = table().lock();
    const auto delivery = deliveries->find(std::this_thread::get_id());
    if (delivery != deliveries->end())
        delivery->second.deadline = std::max(deadline, outerDeadline);
}

QList<Delivery> deliveries()
{
    const auto known = table().lock();
    QList<Delivery> result;
    for (const auto &[thread, delivery] : *known)
        result.append(delivery);
    return result;
}

QList<Delivery> deliveriesInTime(Clock::time_point now)
{
    QList<Delivery> result = deliveries();
    result.removeIf([now](const Delivery &delivery) { return delivery.deadline < now; });
    return result;
}

} // namespace inflight
