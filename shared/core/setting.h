#pragma once

#include <QString>
#include <QStringList>
#include <QStringView>

#include <chrono>
#include <limits>
#include <type_traits>

/// One setting: its key, its default and its meaning. Each is declared once, as a constant in the
/// header beside its reader, and listed in tools/settings:
///
///     inline constexpr Setting<std::chrono::seconds> pause{
///         .key = u"scanner:pause",
///         .defaultValue = 20,
///         .smallest = 1,
///         .about = u"Time between two readings.",
///     };
///
/// T is int, bool, QString, QStringList, or std::chrono::seconds or milliseconds: the unit of a
/// time in a file is part of the type. The views refer to literals, which are never freed.
template <typename T>
struct Setting
{
    static constexpr bool isText = std::is_same_v<T, QString> || std::is_same_v<T, QStringList>;
    static constexpr bool isTime =
        std::is_same_v<T, std::chrono::seconds> || std::is_same_v<T, std::chrono::milliseconds>;
    using Default = std::conditional_t<isText, QStringView, std::conditional_t<isTime, int, T>>;

    /// Format `section:key`.
    QStringView key;
    /// The value if no file has the key. For a list: the text, entries separated by commas. For a
    /// time: the number, as in a file.
    Default defaultValue = {};
    /// A lower number is raised to this one.
    int smallest = std::numeric_limits<int>::min();
    /// A sentence in English for people, with its full stop.
    QStringView about;

    /// The current value. A text that is not a number, or neither true nor false, gives the default
    /// and one warning. Thread: any.
    T value() const;
    /// The same with a default that the reader knows only at run time.
    T valueOr(const T &otherDefault) const;
};

/// A section whose keys are external names, such as currency codes. All values are texts. Declared
/// and listed like a Setting.
struct SettingPattern
{
    QStringView section;
    /// What the keys of the section are: "currency, by its code".
    QStringView names;
    /// An example line of the section.
    QStringView example;
    QStringView about;

    /// The key of `name`, written `section:name`.
    QString key(const QString &name) const;
    /// The current value of `name`. Thread: any.
    QString value(const QString &name, const QString &defaultValue) const;
};

/// A QString that refers to the literal without a copy; null for an empty literal.
QString textOfLiteral(QStringView literal);
