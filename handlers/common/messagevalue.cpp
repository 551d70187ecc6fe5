#include "handlers/common/messagevalue.h"

QHash<QString, QString> messageHeaders(const QVariantMap &map)
{
    QHash<QString, QString> headers;
    for (const auto &[name, value] : map.asKeyValueRange())
        headers.insert(name, value.toString());
    return headers;
}
