#pragma once

#include <QMetaType>
#include <QString>

namespace Log4Qt {

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

    Level(Value value = NULL_INT)
        : value(value)
    {
    }
    int toInt() const { return value; }
    bool operator==(const Level other) const { return value == other.value; }
    bool operator!=(const Level other) const { return value != other.value; }
    bool operator<(const Level other) const { return value < other.value; }
    bool operator<=(const Level other) const { return value <= other.value; }
    bool operator>(const Level other) const { return value > other.value; }
    bool operator>=(const Level other) const { return value >= other.value; }
    QString toString() const;
    static Level fromString(const QString &level, bool *ok = nullptr);

private:
    volatile Value value;
};

} // namespace Log4Qt

Q_DECLARE_METATYPE(Log4Qt::Level)
