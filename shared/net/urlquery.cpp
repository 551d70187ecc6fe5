#include "shared/net/urlquery.h"

using namespace Qt::StringLiterals;

namespace http {

QString queryValue(const QString &value)
{
    return value.isEmpty() ? u""_s : QString::fromLatin1(QUrl::toPercentEncoding(value));
}

void setQuery(QUrl &url, const QUrlQuery &query)
{
    if (url.isValid())
        url.setQuery(query);
}

} // namespace http
