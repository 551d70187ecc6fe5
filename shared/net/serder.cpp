#include "shared/net/serder.h"

#include "shared/core/guarded.h"

#include <QAssociativeIterable>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QSequentialIterable>

namespace serder::details {

namespace {

QVariant converted(const QVariant &given, QMetaType to);

/// Converts JSON values to the form of a parsed message: maps, lists and plain values.
QVariant plain(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QJsonObject:
        return value.toJsonObject().toVariantMap();
    case QMetaType::QJsonArray:
        return value.toJsonArray().toVariantList();
    case QMetaType::QJsonValue:
        return value.toJsonValue().toVariant();
    case QMetaType::QJsonDocument:
        return value.toJsonDocument().toVariant();
    case QMetaType::QVariantHash:
        return value.toMap();
    default:
        return value;
    }
}

bool isMap(const QVariant &value)
{
    return value.typeId() == QMetaType::QVariantMap;
}

bool isList(const QVariant &value)
{
    return value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList;
}

QVariant convertedList(const QVariantList &values, QMetaType to)
{
    QVariant result(to);
    auto list = result.view<QSequentialIterable>();
    const QMetaType entryType = list.metaContainer().valueMetaType();
    for (const QVariant &value : values)
        list.addValue(converted(value, entryType));
    return result;
}

QVariant convertedMap(const QVariantMap &values, QMetaType to)
{
    QVariant result(to);
    auto map = result.view<QAssociativeIterable>();
    const QMetaType keyType = map.metaContainer().keyMetaType();
    const QMetaType valueType = map.metaContainer().mappedMetaType();
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        map.setValue(converted(it.key(), keyType), converted(it.value(), valueType));
    return result;
}

QVariant converted(const QVariant &given, QMetaType to)
{
    const QVariant value = plain(given);
    if (value.metaType() == to || to == QMetaType::fromType<QVariant>())
        return value;

    if (to.flags() & QMetaType::IsGadget && isMap(value)) {
        QVariant result(to);
        Strategy::create(to.metaObject())->deserialize(result.data(), value, to.metaObject());
        return result;
    }
    if (to.id() == QMetaType::QByteArray || to.id() == QMetaType::QString) {
        QVariant result = value;
        if (isMap(value) || isList(value))
            result = QJsonDocument::fromVariant(value).toJson(QJsonDocument::Compact);
        return result.convert(to) ? result : QVariant(to);
    }
    if (isList(value) && QMetaType::canView(to, QMetaType::fromType<QSequentialIterable>()))
        return convertedList(value.toList(), to);
    if (isMap(value) && QMetaType::canView(to, QMetaType::fromType<QAssociativeIterable>()))
        return convertedMap(value.toMap(), to);

    QVariant result = value;
    return result.convert(to) ? result : QVariant(to);
}

} // namespace

std::shared_ptr<const Strategy> Strategy::create(const QMetaObject *metaObject)
{
    // Never destroyed: a worker may outlive main().
    static auto &strategies =
        *new Guarded<QHash<const QMetaObject *, std::shared_ptr<const Strategy>>>;

    const auto table = strategies.lock();
    auto &known = (*table)[metaObject];
    if (!known) {
        const auto strategy = std::make_shared<Strategy>();
        for (int index = 0; index < metaObject->propertyCount(); ++index) {
            const QMetaProperty property = metaObject->property(index);
            strategy->fields.push_back({QString::fromLatin1(property.name()), property});
        }
        known = strategy;
    }
    return known;
}

void Strategy::deserialize(void *target, const QVariant &source,
                           const QMetaObject *metaObject) const
{
    Q_UNUSED(metaObject)
    const QVariant values = plain(source);
    if (!isMap(values))
        return;
    const QVariantMap map = values.toMap();
    for (const Field &field : fields) {
        const auto found = map.constFind(field.key);
        if (found != map.constEnd())
            field.property.writeOnGadget(target, converted(*found, field.property.metaType()));
    }
}

} // namespace serder::details
