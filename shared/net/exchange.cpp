#include "shared/net/exchange.h"

#include <algorithm>

bool Exchange::hasHeader(const char *name) const
{
    return std::any_of(headers.cbegin(), headers.cend(), [name](const auto &header) {
        return header.first.compare(name, Qt::CaseInsensitive) == 0;
    });
}

bool Exchange::isSecure() const
{
    return url.scheme() == u"https";
}
