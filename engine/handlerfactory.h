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
    /// Returns a new handler for the type.
    BasicHandler *(*build)(const QString &type);
    /// The keys by which people search for a message of the type: dotted paths as for
    /// referenceOf(), separated by blanks. If empty, the path of the first request is used.
    const char16_t *references = u"";
};

/// A row for a class that knows its type itself.
template <typename Handler>
constexpr HandlerRow row(const char16_t *type, const char16_t *references = u"")
{
    return {type, [](const QString &) -> BasicHandler * { return new Handler; }, references};
}

/// A row for a class that serves several types and is given its type.
template <typename Handler>
constexpr HandlerRow typedRow(const char16_t *type, const char16_t *references = u"")
{
    return {type, [](const QString &name) -> BasicHandler * { return new Handler(name); },
            references};
}

/// Builds the handler of a message type. The rows never change after construction, so look-ups need
/// no lock.
class HandlerFactory
{
public:
    explicit HandlerFactory(std::span<const HandlerRow> rows);
    virtual ~HandlerFactory();

    /// A new handler, owned by the caller; null for an unknown type.
    virtual BasicHandler *create(const QString &type);

private:
    QMap<QString, std::function<BasicHandler *()>> builders;
    Log4Qt::Logger *logger;
};
