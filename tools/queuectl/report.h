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

/// A column of a table, or a line of a list of facts: a key of the data and its title.
struct Column
{
    QString key;
    QString title;
    Format format = Format::Plain;
    bool isRight = false;
};

/// What a command has found: the data, which is all of the JSON form, and how the text form shows it.
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

    QString toText(bool withColours) const;
    QByteArray toJson() const;

private:
    struct Block
    {
        enum class Kind
        {
            Line,
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

/// `text` in the colour of its tone.
QString coloured(const QString &text, Tone tone, bool withColours);

/// Text from a row or a log for a terminal: characters that would control it appear as a dot.
QString printable(const QString &text);

} // namespace queuectl
