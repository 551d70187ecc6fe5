#pragma once

#include <QMetaType>
#include <QString>

namespace Log4Qt {

/// The severity of a line. Ordered: a logger writes its own level and all higher ones.
class Level
{
public:
    enum Value
    {
        NULL_INT = 0,
        ALL_INT = 32,
        TRACE_INT = 64,
        DEBUG_INT = 96,
        INFO_INT = 128,
        WARN_INT = 150,
        ERROR_INT = 182,
        FATAL_INT = 214,
        OFF_INT = 255
    };

    // NOLINTNEXTLINE(google-explicit-constructor): callers pass plain values.
    constexpr Level(Value value = NULL_INT)
        : value(value)
    {
    }

    constexpr int toInt() const { return value; }
    /// The name in property files, such as "INFO".
    QString toString() const;
    /// NULL_INT, and false in `ok`, for an unknown name.
    static Level fromString(const QString &level, bool *ok = nullptr);

    constexpr bool operator==(const Level &other) const = default;
    constexpr auto operator<=>(const Level &other) const = default;

private:
    Value value;
};

} // namespace Log4Qt

Q_DECLARE_METATYPE(Log4Qt::Level)
