#include "shared/core/setting.h"

#include "shared/core/config.h"
#include "shared/core/singleton.h"

#include <algorithm>

template <typename T>
T Setting<T>::value() const
{
    if constexpr (std::is_same_v<T, QString>)
        return valueOr(textOfLiteral(defaultValue));
    else if constexpr (std::is_same_v<T, QStringList>)
        return Singleton<Config>::instance()->getStringList(textOfLiteral(key),
                                                            textOfLiteral(defaultValue));
    else
        return valueOr(T(defaultValue));
}

template <typename T>
T Setting<T>::valueOr(const T &otherDefault) const
{
    Config *config = Singleton<Config>::instance();
    const QString keyText = textOfLiteral(key);
    if constexpr (std::is_same_v<T, QString>)
        return config->getString(keyText, otherDefault);
    else if constexpr (std::is_same_v<T, QStringList>)
        return config->getStringList(keyText, otherDefault.join(u','));
    else if constexpr (std::is_same_v<T, bool>)
        return config->getBool(keyText, otherDefault);
    else if constexpr (isTime)
        return T(
            std::max(smallest, config->getInt(keyText, static_cast<int>(otherDefault.count()))));
    else
        return std::max(smallest, config->getInt(keyText, otherDefault));
}

template struct Setting<int>;
template struct Setting<bool>;
template struct Setting<QString>;
template struct Setting<QStringList>;
template struct Setting<std::chrono::seconds>;
template struct Setting<std::chrono::milliseconds>;

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
