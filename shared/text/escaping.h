#pragma once

#include <QByteArray>
#include <QString>

#include <string>
#include <string_view>

/// Makes external texts (rows, replies, paths) safe for a log or a terminal.
///
/// Characters that control a terminal or invisibly change the displayed text are written by number:
/// `\x1b`, `\u202e`, `\U000e0041`. These are C0, DEL and C1, direction marks, overrides and
/// isolates, line and paragraph separators, and zero-width characters. A single backslash is kept,
/// so JSON and paths remain readable. It is doubled only where the text would otherwise look like
/// such a number, so the encoding is unambiguous.
/// Thread: any.
namespace escaping {

enum class Newlines
{
    Kept,
    Escaped
};

QString escaped(const QString &text, Newlines newlines = Newlines::Escaped);

/// The original of a text that escaped() or logText() returned.
QString unescaped(const QString &shown);

/// An event's text for the log: escaped, with lines after the first indented by four blanks, and at
/// most 63 KiB, which leaves room for time and category in 64 KiB. A longer text is cut between two
/// characters and ends with the number of omitted bytes (UTF-8).
std::string logText(std::string_view utf8);
QString logText(const QString &text);

/// The same JSON with these characters as JSON escapes, such as `\u009b`. `json` must come from
/// QJsonDocument, which escapes only C0.
QByteArray escapedJson(const QByteArray &json);

} // namespace escaping
