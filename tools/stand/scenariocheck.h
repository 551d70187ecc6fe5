#pragma once

#include "rig/journalrows.h"
#include "rig/messagetable.h"
#include "rig/servicelog.h"
#include "tools/stand/scenario.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace stand {

/// A message of a scenario and the id that its row was given.
struct WrittenMessage
{
    int id = 0;
    QueuedMessage message;
};

/// The service's line about the signal to end, a warning that every run may have.
extern const QString stopText;

// The differences from the scenario, one readable entry for each; empty when there are none.

/// `rows`: what is left in the table.
QStringList tableFindings(const QList<WrittenMessage> &written, const QList<rig::TableRow> &rows);
QStringList journalFindings(const QList<WrittenMessage> &written,
                            const QList<rig::JournalRow> &rows);
/// `cards`: the rows of `documentcard` at the end.
QStringList cardFindings(const Scenario &scenario, const QList<rig::CardRow> &cards);
QStringList logFindings(const Scenario &scenario, const QList<rig::LogRecord> &log);

} // namespace stand
