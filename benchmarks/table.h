#pragma once

#include "rig/messagetable.h"

#include <QString>
#include <QStringList>

#include <memory>

/// The table `message` of one till, on either database, with its schema and the till's durability.
/// What goes wrong is thrown as std::runtime_error.
class Table
{
public:
    virtual ~Table() = default;

    /// "SQLite" or "MariaDB".
    virtual QString database() const = 0;
    /// Empties the table, makes it as if newly created.
    virtual void clear() = 0;
    /// Adds `rows` rows, the types taking turns, each with the body that its type is given.
    void fill(const QStringList &types, int rows, int receiverPort);
    /// Tells a planner that counts rows how many of them there are. A server does so by itself in a
    /// while.
    virtual void analyze() = 0;
    int count() { return table->count(); }
    bool has(const QString &type) { return table->has(type); }
    /// The section of the service's settings that leads here.
    virtual QString settings() const = 0;
    /// The bare loop's arguments that lead here.
    virtual QStringList bareLoopArguments() const = 0;

protected:
    /// Makes what was written as cheap to go on from as it would be after a while at rest.
    virtual void settle() = 0;

    std::unique_ptr<rig::MessageTable> table;
};

/// A database file in `folder`, made anew.
std::unique_ptr<Table> sqliteTable(const QString &folder);
/// A server of its own, in a folder below `folder`, with its default settings; ended with the
/// object.
std::unique_ptr<Table> mariaDbTable(const QString &folder);
