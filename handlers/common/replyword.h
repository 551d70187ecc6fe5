#pragma once

#include <QString>
#include <QStringView>

#include <cstddef>

/// A code or state from a reply, for use in a reason: its first 40 characters, or "не указано" if
/// empty. A reply may contain megabytes in its place, and reasons are stored.
QString shownWord(const QString &word);

/// A word in a reply or a message, and what it means here.
template <typename Value>
struct KnownWord
{
    QStringView word;
    Value value;
};

/// The meaning of a word, compared exactly; `unknown` for one that is not in the table.
template <typename Value, std::size_t size>
Value meaningOf(const QString &word, const KnownWord<Value> (&table)[size], Value unknown)
{
    for (const KnownWord<Value> &known : table) {
        if (known.word == word)
            return known.value;
    }
    return unknown;
}
