#pragma once

#include <QList>
#include <QString>

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

} // namespace rig
