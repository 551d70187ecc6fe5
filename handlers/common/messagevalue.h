#pragma once

#include "engine/message.h"

#include <QHash>
#include <QString>
#include <QVariant>
#include <QVariantMap>

/// The value of `key` in the message's body as a `T`. `defaultValue` is returned only for a missing
/// key: a value that cannot be converted gives an empty `T`, 0 for a number.
template <typename T>
T messageValue(const Message &message, const QString &key, const T &defaultValue = T())
{
    const QVariant value = message.body.value(key, QVariant::fromValue(defaultValue));
    const QMetaType wanted = QMetaType::fromType<T>();
    if (value.metaType() == wanted)
        return value.value<T>();
    T converted{};
    if (!QMetaType::convert(value.metaType(), value.constData(), wanted, &converted))
        return T{};
    return converted;
}

/// The request headers in a message's map, each value as text.
QHash<QString, QString> messageHeaders(const QVariantMap &map);
