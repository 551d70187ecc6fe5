#pragma once

#include <QMap>
#include <QString>

#include <functional>
#include <span>

class BasicHandler;

namespace Log4Qt {
class Logger;
}

/// One message type and how its handler is built. `build` is given the type and returns a new object.
struct HandlerRow
{
    const char16_t *type;
    BasicHandler *(*build)(const QString &type);
};

/// A row for a class that knows its type itself.
template <typename Handler>
constexpr HandlerRow row(const char16_t *type)
{
    return {type, [](const QString &) -> BasicHandler * {
                return new Handler;
            }};
}

/// A row for a class that serves several types and is told which.
template <typename Handler>
constexpr HandlerRow typedRow(const char16_t *type)
{
    return {type, [](const QString &name) -> BasicHandler * {
                return new Handler(name);
            }};
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
