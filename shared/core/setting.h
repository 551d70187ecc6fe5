#pragma once

#include <QString>
#include <QStringList>
#include <QStringView>

#include <chrono>
#include <limits>
#include <type_traits>

/// One setting: its key, its default and what it means. The only place that says so is a constant
/// in the header beside its reader, and tools/settings lists all of them:
///
///     inline constexpr Setting<std::chrono::seconds> pause{
///         .key = u"scanner:pause",
///         .defaultValue = 20,
///         .smallest = 1,
///         .about = u"Time between two readings.",
///     };
///
/// T is int, bool, QString, QStringList, or std::chrono::seconds or milliseconds: the unit in which
/// a file gives a time is part of the type. The views refer to literals, which live as long as the
/// program.
template <typename T>
struct Setting
{
    static constexpr bool isText = std::is_same_v<T, QString> || std::is_same_v<T, QStringList>;
    static constexpr bool isTime =
        std::is_same_v<T, std::chrono::seconds> || std::is_same_v<T, std::chrono::milliseconds>;
    using Default = std::conditional_t<isText, QStringView, std::conditional_t<isTime, int, T>>;

    /// Written `section:key`.
    QStringView key;
    /// Holds when no file has the key. Of a list it is the text, entries joined by commas; of a
    /// time it is the number, as in a file.
    Default defaultValue = {};
    /// Any lower number counts as this one.
    int smallest = std::numeric_limits<int>::min();
    /// English, for people: a sentence with its full stop.
    QStringView about;

    /// What the settings say now. A text that is not a number, or neither true nor false, gives the
    /// default and one warning. Thread: any.
    T value() const;
    /// The same with another default, which the reader knows only at run time.
    T valueOr(const T &otherDefault) const;
};

/// A section whose keys are names from outside, such as codes of currencies. All values are texts.
/// Declared and listed as a Setting is.
struct SettingPattern
{
    QStringView section;
    /// What has a line of its own, and by what: "currency, by its code".
    QStringView names;
    /// One line of the section.
    QStringView example;
    QStringView about;

    /// The key of `name`, written `section:name`.
    QString key(const QString &name) const;
    /// What the settings say now of `name`. Thread: any.
    QString value(const QString &name, const QString &defaultValue) const;
};

/// The text of a literal without a copy of it; a null one for an empty literal.
QString textOfLiteral(QStringView literal);
