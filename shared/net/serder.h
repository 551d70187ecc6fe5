#pragma once

#include <QMetaProperty>
#include <QVariant>

#include <memory>
#include <vector>

/// Fills records from maps by property name, as messages contain them.
namespace serder {

namespace details {

/// Fills the properties of one reflected type (Q_GADGET). Built once, used by any thread.
class Strategy
{
public:
    static std::shared_ptr<const Strategy> create(const QMetaObject *metaObject);

    /// Fills the object at `target`, of the type of `metaObject`, from the map `source`. A property
    /// without a key keeps its value, and a key without a property is ignored. A value that cannot
    /// be converted gives the empty value. Lists and maps are converted entry by entry, reflected
    /// types in them by their own strategy. An object or array for a property of bytes or text
    /// becomes compact JSON. A source that is not a map changes nothing.
    void deserialize(void *target, const QVariant &source, const QMetaObject *metaObject) const;

private:
    struct Field
    {
        QString key;
        QMetaProperty property;
    };

    std::vector<Field> fields;
};

} // namespace details

/// The record in `source`; an empty one if that is not a map.
template <typename T>
T deserialize(const QVariant &source)
{
    static const auto strategy = details::Strategy::create(&T::staticMetaObject);
    T target;
    strategy->deserialize(&target, source, &T::staticMetaObject);
    return target;
}

} // namespace serder
