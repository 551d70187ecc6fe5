#include "tests/support/hostnames.h"
#include "tests/support/realfunction.h"

#include <QHash>

#include <mutex>
#include <netdb.h>

namespace {

std::mutex mutex;

QHash<QByteArray, QList<QByteArray>> &knownNames()
{
    static QHash<QByteArray, QList<QByteArray>> names;
    return names;
}

} // namespace

void setAddressesOf(const QByteArray &name, const QList<QByteArray> &addresses)
{
    const std::lock_guard guard(mutex);
    knownNames().insert(name, addresses);
}

// The libraries find this one before that of the system.
extern "C" int getaddrinfo(const char *name, const char *service, const addrinfo *hints,
                           addrinfo **result)
{
    static const auto next = realFunction<decltype(getaddrinfo)>("getaddrinfo");
    QList<QByteArray> addresses;
    {
        const std::lock_guard guard(mutex);
        addresses = knownNames().value(name);
    }
    if (addresses.isEmpty())
        return next(name, service, hints, result);
    *result = nullptr;
    for (addrinfo **end = result; !addresses.isEmpty(); end = &(*end)->ai_next) {
        const int code = next(addresses.takeFirst().constData(), service, hints, end);
        if (code != 0)
            return code;
        while ((*end)->ai_next)
            end = &(*end)->ai_next;
    }
    return 0;
}
