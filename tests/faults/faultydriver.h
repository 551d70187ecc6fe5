#pragma once

#include <QList>
#include <QSqlDriver>
#include <QString>

/// SQLite with a counter, below Qt's driver and below SqliteStatement: every opening, preparation
/// and execution is a step, and a chosen step fails with an error of its own instead of reaching
/// SQLite.
namespace faultydriver {

struct Step
{
    enum class Kind
    {
        Open,
        Prepare,
        Execute,
    };

    Kind kind = Kind::Open;
    /// Empty for an opening.
    QString statement;
    bool failed = false;

    bool operator==(const Step &) const = default;
};

/// From now on, steps of QSQLITE are counted, for the rest of the process.
void install();
/// Resets the count to 1 and forgets the steps so far. `from`: the first step that fails, 0 for
/// none; `isForEver`: all later steps fail, too.
void arm(int from, bool isForEver);
/// The steps since arm(), of all threads.
QList<Step> steps();

} // namespace faultydriver
