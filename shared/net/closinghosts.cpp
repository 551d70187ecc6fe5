#include "shared/net/closinghosts.h"

#include <algorithm>

void ClosingHosts::add(const QByteArray &host, Time now)
{
    const auto list = entries.lock();
    list->removeIf([&](const Entry &entry) { return entry.host == host; });
    if (list->size() == capacity)
        list->removeFirst();
    list->append({host, now + lifetime});
    isEmpty = false;
}

bool ClosingHosts::contains(const QByteArray &host, Time now) const
{
    if (isEmpty)
        return false;
    const auto list = entries.lock();
    return std::any_of(list->cbegin(), list->cend(),
                       [&](const Entry &entry) { return entry.host == host && now < entry.end; });
}
