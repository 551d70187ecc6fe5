#include "shared/core/setting.h"

#include "shared/core/config.h"
#include "shared/core/singleton.h"

#include <algorithm>

template <>
int Setting<int>::valueOr(const int &otherDefault) const
{
    return std::max(smallest,
                    Singleton<Config>::instance()->getInt(textOfLiteral(key), otherDefault));
}

template <>
int Setting<int>::value() const
{
    return valueOr(defaultValue);
}

template <>
bool Setting<bool>::valueOr(const bool &otherDefault) const
{
    return Singleton<Config>::instance()->getBool(textOfLiteral(key), otherDefault);
}

template <>
bool Setting<bool>::value() const
{
    return valueOr(defaultValue);
}

template <>
QString Setting<QString>::valueOr(const QString &otherDefault) const
{
    return Singleton<Config>::instance()->getString(textOfLiteral(key), otherDefault);
}

template <>
QString Setting<QString>::value() const
{
    return valueOr(textOfLiteral(defaultValue));
}

template <>
QStringList Setting<QStringList>::value() const
{
    return Singleton<Config>::instance()->getStringList(textOfLiteral(key),
                                                        textOfLiteral(defaultValue));
}

QString SettingPattern::key(const QString &name) const
{
    return textOfLiteral(section) + u':' + name;
}

QString SettingPattern::value(const QString &name, const QString &defaultValue) const
{
    return Singleton<Config>::instance()->getString(key(name), defaultValue);
}

QString textOfLiteral(QStringView literal)
{
    return literal.isEmpty() ? QString() : QString::fromRawData(literal.data(), literal.size());
}
