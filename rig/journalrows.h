#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace rig {

/// A message's row in the service's journal, with the values of its columns.
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

/// All rows of a journal in the order of their messages' first attempts; none without a file.
/// Throws Error when the file cannot be read.
QList<JournalRow> readJournal(const QString &file);

/// Each row of all tables as one text, its values separated by blanks. Otherwise as readJournal().
QStringList journalTexts(const QString &file);

} // namespace rig
