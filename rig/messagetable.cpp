#include "rig/messagetable.h"

#include "rig/error.h"

#include <QFile>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>

using namespace Qt::StringLiterals;

namespace rig {

namespace {

QString nextConnectionName()
{
    static int count = 0;
    return u"rig-%1"_s.arg(++count);
}

/// A NOT NULL column gets an empty text instead of a null one.
QString given(const QString &text)
{
    return text.isNull() ? u""_s : text;
}

} // namespace

MessageTable::MessageTable(const DatabasePlace &place)
    : place(place)
    , connection(nextConnectionName())
{
    QSqlDatabase database = QSqlDatabase::addDatabase(place.driver, connection);
    if (place.driver == u"QSQLITE") {
        database.setDatabaseName(place.file);
        database.setConnectOptions(u"QSQLITE_BUSY_TIMEOUT=30000"_s);
    } else {
        database.setDatabaseName(u"queues"_s);
        database.setUserName(place.user);
        database.setPassword(place.password);
        database.setConnectOptions(u"UNIX_SOCKET="_s + place.socket);
    }
    if (!database.open())
        throw Error(u"%1: %2"_s.arg(place.file.isEmpty() ? place.socket : place.file,
                                    database.lastError().text()));
}

MessageTable::~MessageTable()
{
    QSqlDatabase::removeDatabase(connection);
}

void MessageTable::createTables(Durability durability)
{
    QFile schema(QStringLiteral(RIG_SCHEMAS "/sqlite.sql"));
    if (!schema.open(QIODevice::ReadOnly))
        throw Error(u"%1: %2"_s.arg(schema.fileName(), schema.errorString()));
    QByteArray script;
    const QList<QByteArray> lines = schema.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (!line.trimmed().startsWith("--"))
            script += line + '\n';
    }
    if (durability == Durability::OfTests)
        query(u"PRAGMA synchronous=OFF"_s);
    query(u"PRAGMA journal_mode=WAL"_s);
    const QList<QByteArray> statements = script.split(';');
    for (const QByteArray &statement : statements) {
        if (!statement.trimmed().isEmpty())
            query(QString::fromUtf8(statement));
    }
}

int MessageTable::put(const TableRow &row)
{
    query(u"INSERT INTO message (type, body, cardnumber, statuscode) VALUES (?, ?, ?, ?)"_s,
          {row.type, given(row.body), given(row.cardNumber), given(row.statusCode)});
    return query(place.driver == u"QSQLITE" ? u"SELECT last_insert_rowid()"_s
                                            : u"SELECT LAST_INSERT_ID()"_s)
        .value(0)
        .value(0)
        .toInt();
}

void MessageTable::remove(int id)
{
    query(u"DELETE FROM message WHERE messageid = ?"_s, {id});
}

QList<TableRow> MessageTable::rows()
{
    QList<TableRow> result;
    const QList<QVariantList> rows = query(
        u"SELECT messageid, type, body, cardnumber, statuscode FROM message ORDER BY messageid"_s);
    for (const QVariantList &row : rows)
        result.append({row[0].toInt(), row[1].toString(), row[2].toString(), row[3].toString(),
                       row[4].toString()});
    return result;
}

QStringList MessageTable::types()
{
    QStringList result;
    const QList<QVariantList> rows = query(u"SELECT DISTINCT type FROM message ORDER BY type"_s);
    for (const QVariantList &row : rows)
        result.append(row[0].toString());
    return result;
}

int MessageTable::count()
{
    return query(u"SELECT COUNT(*) FROM message"_s).value(0).value(0).toInt();
}

bool MessageTable::has(const QString &type)
{
    return !query(u"SELECT 1 FROM message WHERE type = ? LIMIT 1"_s, {type}).isEmpty();
}

int MessageTable::lastId()
{
    return query(u"SELECT COALESCE(MAX(messageid), 0) FROM message"_s).value(0).value(0).toInt();
}

void MessageTable::putCard(const CardRow &card)
{
    query(u"INSERT INTO documentcard (id, chequenumber, cardnumber, operationid, operationinfo) "
          "VALUES (?, ?, ?, ?, ?)"_s,
          {card[u"id"_s].toInt(), given(card[u"chequenumber"_s]), given(card[u"cardnumber"_s]),
           given(card[u"operationid"_s]), given(card[u"operationinfo"_s])});
}

QList<CardRow> MessageTable::cards()
{
    const QStringList columns{u"id"_s, u"chequenumber"_s, u"cardnumber"_s, u"operationid"_s,
                              u"operationinfo"_s};
    QList<CardRow> result;
    const QList<QVariantList> rows =
        query(u"SELECT %1 FROM documentcard ORDER BY id"_s.arg(columns.join(u", "_s)));
    for (const QVariantList &row : rows) {
        CardRow card;
        for (qsizetype column = 0; column < columns.size(); ++column)
            card.insert(columns[column], row[column].toString());
        result.append(card);
    }
    return result;
}

QList<QVariantList> MessageTable::query(const QString &statement, const QVariantList &values)
{
    QSqlQuery query(QSqlDatabase::database(connection, false));
    // A server cannot prepare BEGIN.
    bool isDone = false;
    if (values.isEmpty()) {
        isDone = query.exec(statement);
    } else {
        query.prepare(statement);
        for (const QVariant &value : values)
            query.addBindValue(value);
        isDone = query.exec();
    }
    if (!isDone)
        throw Error(u"%1: %2"_s.arg(statement, query.lastError().text()));
    QList<QVariantList> rows;
    while (query.next()) {
        QVariantList row;
        for (int column = 0; column < query.record().count(); ++column)
            row.append(query.value(column));
        rows.append(row);
    }
    return rows;
}

} // namespace rig
