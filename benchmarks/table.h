#pragma once

#include "rig/messagetable.h"

#include <QString>
#include <QStringList>

#include <memory>

/// A till's table `message` on one database, with its schema and the till's durability. Errors are
/// thrown as std::runtime_error.
class Table
{
public:
    virtual ~Table() = default;

    /// "SQLite" or "MariaDB".
    virtual QString database() const = 0;
    /// Empties the table and resets it to the state of a new one.
    virtual void clear() = 0;
    /// Adds `rows` rows, the types in turn, each with a body for its type.
    void fill(const QStringList &types, int rows, int receiverPort);
    /// Updates the planner's row counts. A server does so by itself after a while.
    virtual void analyze() = 0;
    int count() { return table->count(); }
    bool has(const QString &type) { return table->has(type); }
    /// The section of the service's settings for this database.
    virtual QString settings() const = 0;
    /// The bare loop's arguments for this database.
    virtual QStringList bareLoopArguments() const = 0;

protected:
    /// Flushes what was written, as it would be after some time without work.
    virtual void settle() = 0;

    std::unique_ptr<rig::MessageTable> table;
};

/// A new database file in `folder`.
std::unique_ptr<Table> sqliteTable(const QString &folder);
/// A MariaDB server with default settings, in a folder below `folder`. It ends with the object.
std::unique_ptr<Table> mariaDbTable(const QString &folder);
