#pragma once

#include "tools/queuectl/failure.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

namespace queuectl {

/// How a value is shown in the text form. JSON always has the plain value.
enum class Format
{
    Plain,
    /// Seconds, as in "2 h 11 min".
    Duration,
    /// An ISO time, as the time of day.
    Time,
    YesNo,
    /// A state such as "ok" or "error", coloured.
    State,
};

enum class Tone
{
    Plain,
    Good,
    Bad,
    Careful,
    Faint,
    Strong
};

/// How wide a column of a table may become before its values are cut. A row may hold a type or a
/// card of any length.
constexpr qsizetype usualWidth = 40;
constexpr qsizetype answerWidth = 100;
/// Of an answer beside many other columns.
constexpr qsizetype answerColumnWidth = 80;
/// For texts of our own.
constexpr qsizetype anyWidth = 0;

/// A column of a table, or a line of a list of facts: a key of the data and its title. Facts are
/// never cut.
struct Column
{
    QString key;
    QString title;
    Format format = Format::Plain;
    bool isRight = false;
    qsizetype widest = usualWidth;
};

/// What a command has found: the data, which is all of the JSON form, and how the text form shows
/// it. Both forms write control and invisible characters by their numbers (shared/text/escaping.h),
/// the JSON form in the escapes of JSON.
class Report
{
public:
    QJsonObject data;
    ExitCode exitCode = Done;
    /// The command has written its output itself.
    bool isPrinted = false;

    /// The records of the array `data[key]`, one on a line.
    void table(const QString &key, const QList<Column> &columns);
    /// Members of the data, one on a line; a dotted key is a member of a member.
    void facts(const QList<Column> &lines);
    void line(const QString &text, Tone tone = Tone::Plain);
    /// A text that may have lines of its own; those after the first one are indented, so that none
    /// passes for a line of the report.
    void quote(const QString &text);
    /// The object over several lines.
    void object(const QJsonObject &object);

    QString toText(bool withColours) const;
    /// See jsonAnswer().
    QByteArray toJson() const;

private:
    struct Block
    {
        enum class Kind
        {
            Line,
            /// The text is ready to be shown.
            Ready,
            Table,
            Facts
        } kind = Kind::Line;
        QString text;
        Tone tone = Tone::Plain;
        QString key;
        QList<Column> columns;
    };

    QList<Block> blocks;
};

/// `text`, cut with an ellipsis when it has more than `widest` characters.
QString shortened(const QString &text, qsizetype widest);

/// A state of the data, such as "ok", in the operator's language.
QString stateText(const QString &state);
Tone stateTone(const QString &state);

/// What a terminal is sent before a text of this tone; empty for Plain.
QString toneStart(Tone tone);
/// `text` in the colour of its tone.
QString coloured(const QString &text, Tone tone, bool withColours);

} // namespace queuectl
