#pragma once

#include <QByteArray>
#include <QString>

#include <string>
#include <string_view>

/// Texts from outside (rows, replies, paths) as a log or a terminal may show them.
///
/// Characters that would control a terminal, or that change what a reader sees without being seen,
/// are written by their number: `\x1b`, `\u202e`, `\U000e0041`. These are C0, DEL and C1, direction
/// marks, overrides and isolates, line and paragraph separators, and characters without width. A
/// backslash stays as it is, so JSON and paths remain readable; it is doubled only where the text
/// would otherwise read like one of these numbers, so each result means one text only.
/// Thread: any.
namespace escaping {

enum class Newlines
{
    Kept,
    Escaped
};

QString escaped(const QString &text, Newlines newlines = Newlines::Escaped);

/// The text that `shown` was made of, which escaped() or logText() made of it.
QString unescaped(const QString &shown);

/// The text of an event as the log has it: escaped, the lines after the first one indented by four
/// blanks, and 63 KiB at most, which leaves room for time and category in 64 KiB. A longer text is
/// cut between two characters and ends with the number of bytes (UTF-8) that were left out.
std::string logText(std::string_view utf8);
QString logText(const QString &text);

/// The same JSON with these characters in the escapes of JSON, such as `\u009b`. `json` comes from
/// QJsonDocument, which escapes C0 but nothing above it.
QByteArray escapedJson(const QByteArray &json);

} // namespace escaping
