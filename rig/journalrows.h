#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace rig {

/// What the service's journal has of a message, the values as they are in its columns.
struct JournalRow
{
    int messageId = 0;
    QString type;
    /// `delivered`, `dropped` or `kept`.
    QString verdict;
    QString kind;
    int status = 0;
    QString text;
    QString reference;
    int attempts = 0;
};

/// All rows of a journal in the order in which their messages were first tried; none without a
/// file. Throws Error when the file cannot be read.
QList<JournalRow> readJournal(const QString &file);

/// Each row of each of its tables as one text, its values with blanks in between. As readJournal()
/// otherwise.
QStringList journalTexts(const QString &file);

} // namespace rig
