#pragma once

#include "engine/message.h"

#include <QHash>
#include <QString>
#include <QVariant>
#include <QVariantMap>

/// The value of `key` in the message's body as a `T`. `defaultValue` answers for an absent key
/// only: a value that cannot be converted gives an empty `T`, 0 for a number.
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

/// Request headers from the map that a message holds, each value as text.
QHash<QString, QString> messageHeaders(const QVariantMap &map);
