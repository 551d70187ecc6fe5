#include "shared/net/closinghosts.h"

#include <QMutexLocker>

#include <algorithm>

void ClosingHosts::add(const QByteArray &host, Time now)
{
    const QMutexLocker locker(&entries.mutex);
    entries.value.removeIf([&](const Entry &entry) { return entry.host == host; });
    if (entries.value.size() == capacity)
        entries.value.removeFirst();
    entries.value.append({host, now + lifetime});
    isEmpty = false;
}

bool ClosingHosts::contains(const QByteArray &host, Time now) const
{
    if (isEmpty)
        return false;
    const QMutexLocker locker(&entries.mutex);
    return std::any_of(entries.value.cbegin(), entries.value.cend(),
                       [&](const Entry &entry) { return entry.host == host && now < entry.end; });
}
