#include "shared/core/jsonvalue.h"

QJsonValue jsonValueByPath(const QJsonObject &object, const QStringList &keys)
{
    QJsonObject current = object;
    for (const QString &key : keys) {
        const QJsonValue value = current.value(key);
        if (!value.isObject())
            return value;
        current = value.toObject();
    }
    return QJsonValue::Null;
}

QJsonValue jsonValueByPath(const QJsonObject &object, const QString &path)
{
    return jsonValueByPath(object, path.split(u'.'));
}

QString jsonTextByPath(const QJsonObject &object, const QString &path)
{
    return jsonValueByPath(object, path).toString();
}

QString jsonLooseTextByPath(const QJsonObject &object, const QString &path)
{
    return jsonValueByPath(object, path).toVariant().toString();
}
