#include "shared/document/sessioninfo.h"

using namespace Qt::StringLiterals;

SessionInfo::SessionInfo(const QVariantMap &map)
    : details(map)
{
    sessionId = details.take(u"sessionId"_s).toString();
}

QJsonObject SessionInfo::toJson() const
{
    QJsonObject object = QJsonObject::fromVariantMap(details);
    object.insert(u"sessionId"_s, sessionId);
    return object;
}
