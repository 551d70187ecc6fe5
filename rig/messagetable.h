#pragma once

#include "rig/durability.h"

#include <QList>
#include <QMap>
#include <QSqlDatabase>
#include <QString>
#include <QVariant>

namespace rig {

/// Where the service's rows are: an SQLite file, or a MariaDB server behind a unix socket.
struct DatabasePlace
{
    /// `QSQLITE` or `QMYSQL`.
    QString driver = QStringLiteral("QSQLITE");
    /// SQLite: the file.
    QString file = {};
    QString socket = {};
    QString user = {};
    QString password = {};
};

/// A row of the table `message`. A new one has no id yet.
struct TableRow
{
    int id = 0;
    QString type;
    QString body;
    QString cardNumber;
    QString statusCode;
};

/// A row of the table `documentcard`: texts by column.
using CardRow = QMap<QString, QString>;

/// The till's side of the table `message`, over a connection of its own. Every operation throws
/// Error when the database refuses. Thread: the one that made it.
class MessageTable
{
public:
    explicit MessageTable(const DatabasePlace &place);
    ~MessageTable();
    MessageTable(const MessageTable &) = delete;

    /// Runs the schema for SQLite, for a file that the service has not made yet. The durability is
    /// that of this connection; the service's have their own.
    void createTables(Durability durability = Durability::OfTests);

    /// Writes a new row and returns its id.
    int put(const TableRow &row);
    void remove(int id);
    QList<TableRow> rows();
    QStringList types();
    int count();
    bool has(const QString &type);
    /// The largest id, 0 without rows. A server leaves gaps between the ids of rows that were
    /// copied.
    int lastId();
    void putCard(const CardRow &card);
    QList<CardRow> cards();

    /// Runs one statement, with `values` for its question marks, and returns the rows.
    QList<QVariantList> query(const QString &statement, const QVariantList &values = {});

private:
    DatabasePlace place;
    QString connection;
};

} // namespace rig
