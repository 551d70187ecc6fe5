#pragma once

#include "rig/mariadbserver.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

struct sqlite3;

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
    /// Tells a planner that counts rows how many of them there are. A server does so by itself in a while.
    virtual void analyze() = 0;
    virtual int count() = 0;
    virtual bool has(const QString &type) = 0;
    /// The largest id, 0 without rows.
    virtual int lastId() = 0;
    /// How the database would carry out `statement`, one step a line.
    virtual QStringList plan(const QString &statement) = 0;
    /// Milliseconds that `statement` takes, all its rows read; the median of eleven runs.
    virtual double milliseconds(const QString &statement) = 0;
    /// The section of the service's settings that leads here.
    virtual QString settings() const = 0;
    /// The bare loop's arguments that lead here.
    virtual QStringList bareLoopArguments() const = 0;

protected:
    virtual void execute(const QString &statement) = 0;
    /// Makes what was written as cheap to go on from as it would be after a while at rest.
    virtual void settle() = 0;
};

/// A database file in `folder`, made anew.
std::unique_ptr<Table> sqliteTable(const QString &folder);
/// A server of its own, in a folder below `folder`, with its default settings; ended with the object.
std::unique_ptr<Table> mariaDbTable(const QString &folder);
