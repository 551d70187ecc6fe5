#pragma once

#include "rig/durability.h"

#include <QList>
#include <QMap>
#include <QSqlDatabase>
#include <QString>
#include <QVariant>

namespace rig {

/// The location of the service's rows: an SQLite file, or a MariaDB server on a unix socket.
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

/// The till's access to the table `message`, over its own connection. Every operation throws Error
/// on a database error. Thread: the one that made it.
class MessageTable
{
public:
    explicit MessageTable(const DatabasePlace &place);
    ~MessageTable();
    MessageTable(const MessageTable &) = delete;

    /// Runs the schema for SQLite, in a file that the service has not created. The durability
    /// applies to this connection; the service's connections have their own.
    void createTables(Durability durability = Durability::OfTests);

    /// Inserts a row and returns its id.
    int put(const TableRow &row);
    void remove(int id);
    QList<TableRow> rows();
    QStringList types();
    int count();
    bool has(const QString &type);
    /// The largest id; 0 without rows. A server leaves gaps between the ids of copied rows.
    int lastId();
    void putCard(const CardRow &card);
    QList<CardRow> cards();

    /// Runs one statement with `values` for its placeholders, and returns the rows.
    QList<QVariantList> query(const QString &statement, const QVariantList &values = {});

private:
    DatabasePlace place;
    QString connection;
};

} // namespace rig
