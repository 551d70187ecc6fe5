#pragma once

#include <QMetaProperty>
#include <QVariant>

#include <memory>
#include <vector>

/// Fills records from maps by the names of their properties, as messages hold them.
namespace serder {

namespace details {

/// How the properties of one reflected type (Q_GADGET) are filled. Built once, used from any
/// thread.
class Strategy
{
public:
    static std::shared_ptr<const Strategy> create(const QMetaObject *metaObject);

    /// Fills the object at `target`, which is of the type of `metaObject`, from the map `source`. A
    /// property whose name is no key keeps its value, and a key that names no property is passed
    /// over. A value that does not convert gives the empty value. Lists and maps are converted
    /// entry by entry, reflected types in them by their own strategy; an object or array given for
    /// bytes or for a text becomes compact JSON. A source that is no map changes nothing.
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

/// The record that `source` describes; an empty one when it is no map.
template <typename T>
T deserialize(const QVariant &source)
{
    static const auto strategy = details::Strategy::create(&T::staticMetaObject);
    T target;
    strategy->deserialize(&target, source, &T::staticMetaObject);
    return target;
}

} // namespace serder
