#pragma once

#include <QMap>
#include <QString>

#include <functional>
#include <span>

class BasicHandler;

namespace Log4Qt {
class Logger;
}

/// One message type and how its handler is built.
struct HandlerRow
{
    const char16_t *type;
    /// Is given the type and returns a new object.
    BasicHandler *(*build)(const QString &type);
    /// Where a message of the type says what a person searches for: dotted paths as for
    /// referenceOf(), parted by blanks. Without one it is the path of the request's address.
    const char16_t *references = u"";
};

/// A row for a class that knows its type itself.
template <typename Handler>
constexpr HandlerRow row(const char16_t *type, const char16_t *references = u"")
{
    return {type, [](const QString &) -> BasicHandler * { return new Handler; }, references};
}

/// A row for a class that serves several types and is told which.
template <typename Handler>
constexpr HandlerRow typedRow(const char16_t *type, const char16_t *references = u"")
{
    return {type, [](const QString &name) -> BasicHandler * { return new Handler(name); },
            references};
}

/// Builds the handler of a message type. The rows never change after the construction, so look-ups
/// need no lock.
class HandlerFactory
{
public:
    explicit HandlerFactory(std::span<const HandlerRow> rows);
    virtual ~HandlerFactory();

    /// A new handler, which belongs to the caller, or null for a type that no row has.
    virtual BasicHandler *create(const QString &type);

private:
    QMap<QString, std::function<BasicHandler *()>> builders;
    Log4Qt::Logger *logger;
};
