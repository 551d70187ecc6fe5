#include "tools/queuectl/json.h"

#include "shared/text/escaping.h"
#include "tools/queuectl/timewords.h"

#include <QJsonDocument>
#include <QSysInfo>

using namespace Qt::StringLiterals;

namespace queuectl {

QJsonObject withOrigin(QJsonObject object, const QDateTime &time)
{
    static const QString host = QSysInfo::machineHostName();
    object.insert(u"host"_s, host);
    object.insert(u"version"_s, QStringLiteral(QUEUE_VERSION));
    object.insert(u"time"_s, jsonTime(time));
    return object;
}

QByteArray jsonAnswer(const QJsonObject &object, JsonForm form, const QDateTime &time)
{
    const QJsonDocument document(withOrigin(object, time));
    if (form == JsonForm::Indented)
        return escaping::escapedJson(document.toJson());
    return escaping::escapedJson(document.toJson(QJsonDocument::Compact)) + '\n';
}

QJsonValue jsonTime(const QDateTime &time)
{
    return time.isValid() ? QJsonValue(exactTime(time)) : QJsonValue();
}

} // namespace queuectl
