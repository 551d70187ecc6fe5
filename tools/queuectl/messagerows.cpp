#include "tools/queuectl/messagerows.h"

#include "shared/core/connectionfactory.h"
#include "shared/core/databasesettings.h"
#include "shared/core/databasevalues.h"
#include "shared/core/singleton.h"
#include "tools/queuectl/failure.h"
#include "tools/queuectl/fileaccess.h"
#include "tools/queuectl/text.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

const QString rowColumns = u"messageid, type, body, cardnumber, statuscode, creationtime"_s;

/// SQLite writes files beside the database even for reading.
QString rightsHint()
{
    const QFileInfo file(databaseFile());
    if (file.filePath().isEmpty() || (file.isWritable() && QFileInfo(file.path()).isWritable()))
        return {};
    // sudo takes no bare number.
    if (file.owner().isEmpty())
        return {};
    return text("; run it as %1: sudo -u %1 queuectl ...",
                "; запустите от имени %1: sudo -u %1 queuectl ...")
        .arg(file.owner());
}

QSqlDatabase connection()
{
    try {
        return Singleton<ConnectionFactory>::instance()->getConnection();
    } catch (const BasicException &exception) {
        // The text of the service's log, so that the operator finds it there.
        const QString reason = exception.tr().ru().simplified();
        throw Failure(NoDatabase,
                      text("The database cannot be reached: %1", "%1").arg(reason) + rightsHint());
    }
}

[[noreturn]] void failStatement(const QSqlError &error)
{
    const QString reason = error.text().simplified();
    throw Failure(
        Failed,
        text("The database refuses a statement: %1", "База данных не выполняет запрос: %1")
            .arg(reason.isEmpty() ? text("the driver gives no reason", "драйвер не назвал причину")
                                  : reason));
}

void prepare(QSqlQuery &query, const QString &statement)
{
    if (!query.prepare(statement))
        failStatement(query.lastError());
}

void bindAndRun(QSqlQuery &query, const QVariantList &values)
{
    for (qsizetype i = 0; i < values.size(); ++i)
        query.bindValue(static_cast<int>(i), values[i]);
    if (!query.exec())
        failStatement(query.lastError());
}

void execute(QSqlQuery &query, const QString &statement, const QVariantList &values)
{
    prepare(query, statement);
    bindAndRun(query, values);
}

Row toRow(const QVariantList &values)
{
    Row row;
    row.id = values[0].toInt();
    row.type = values[1].toString();
    row.body = values[2].toByteArray();
    row.cardNumber = values[3].toString();
    row.statusCode = values[4].toString();
    row.creationTime = databaseTime(values[5]);
    return row;
}

/// Runs `work` in one transaction, which is rolled back when it throws.
void inTransaction(const std::function<void(QSqlDatabase &)> &work)
{
    QSqlDatabase database = connection();
    if (!database.transaction())
        failStatement(database.lastError());
    try {
        work(database);
    } catch (const BasicException &) {
        database.rollback();
        throw;
    }
    if (!database.commit()) {
        const QSqlError error = database.lastError();
        database.rollback();
        failStatement(error);
    }
}

QString orEmpty(const QString &value)
{
    // A null text would be written as NULL, which the columns do not accept.
    return value.isNull() ? u""_s : value;
}

} // namespace

std::optional<QJsonObject> Row::object() const
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject())
        return std::nullopt;
    return document.object();
}

qint64 Row::ageSeconds() const
{
    return creationTime.secsTo(QDateTime::currentDateTime());
}

bool Cutoff::takesIn(const Row &row) const
{
    if (!types.isEmpty() && !types.contains(row.type))
        return false;
    return row.id <= lastId || !row.creationTime.isValid() || row.creationTime < before;
}

MessageRows::MessageRows()
{
    requireDatabase();
    connection();
    if (!databaseFile().isEmpty()
        && number(u"SELECT COUNT(*) FROM queues.sqlite_master "
                  "WHERE type IN ('table', 'view') AND lower(name) = 'message'"_s,
                  {})
               == 0)
        throw Failure(NoDatabase,
                      text("The database %1 has no table message; the service creates it",
                           "В базе данных %1 нет таблицы message; её создаёт служба")
                          .arg(databaseFile()));
}

QList<TypeRows> MessageRows::types(const QDateTime &writtenBefore)
{
    QList<TypeRows> result;
    QString condition;
    QVariantList values;
    if (writtenBefore.isValid()) {
        condition = u"WHERE creationtime < ? "_s;
        values.append(writtenBefore.toString(u"yyyy-MM-dd HH:mm:ss"_s));
    }
    const auto rows = run(u"SELECT type, COUNT(*), MIN(creationtime) FROM message "_s + condition
                              + u"GROUP BY type ORDER BY type"_s,
                          values);
    for (const QVariantList &row : rows)
        result.append({row[0].toString(), row[1].toInt(), databaseTime(row[2])});
    return result;
}

QString countStatement()
{
    return u"SELECT type, COUNT(*), MIN(messageid) FROM message GROUP BY type"_s;
}

QString oldestStatement()
{
    return u"SELECT type, creationtime, messageid FROM message ORDER BY creationtime LIMIT 1000"_s;
}

void MessageRows::countTypes(const std::function<void(const QString &, qint64, int)> &take)
{
    QSqlQuery query(connection());
    query.setForwardOnly(true);
    execute(query, countStatement(), {});
    while (query.next())
        take(query.value(0).toString(), query.value(1).toLongLong(), query.value(2).toInt());
    // An unreadable page ends the rows like the last row does.
    if (query.lastError().isValid())
        failStatement(query.lastError());
}

QHash<QString, QDateTime> MessageRows::oldest(const QList<int> &lowestIds)
{
    QHash<QString, QDateTime> result;
    const auto note = [&result](const QList<QVariantList> &rows) {
        for (const QVariantList &row : rows) {
            const QDateTime time = databaseTime(row[1]);
            QDateTime &known = result[row[0].toString()];
            if (time.isValid() && (!known.isValid() || time < known))
                known = time;
        }
    };
    note(run(oldestStatement(), {}));
    if (!lowestIds.isEmpty()) {
        QVariantList values;
        for (const int id : lowestIds)
            values.append(id);
        note(run(u"SELECT type, creationtime, messageid FROM message WHERE messageid IN (%1)"_s.arg(
                     QStringList(lowestIds.size(), u"?"_s).join(u", "_s)),
                 values));
    }
    result.removeIf([](const auto &entry) { return !entry.value().isValid(); });
    return result;
}

QList<TypeRows> MessageRows::older(const Cutoff &cutoff)
{
    QString condition = u"(creationtime < ? OR creationtime IS NULL OR messageid <= ?"_s;
    QVariantList values{cutoff.before.toString(u"yyyy-MM-dd HH:mm:ss"_s), cutoff.lastId};
    // On SQLite a time is a text, and a till may write it in a form that sorts differently.
    if (!databaseFile().isEmpty())
        condition +=
            u" OR creationtime NOT GLOB '[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9]'"_s;
    condition += u')';
    if (!cutoff.types.isEmpty()) {
        condition +=
            u" AND type IN (%1)"_s.arg(QStringList(cutoff.types.size(), u"?"_s).join(u", "_s));
        for (const QString &type : cutoff.types)
            values.append(type);
    }
    QList<TypeRows> result;
    const auto rows = run(u"SELECT type, COUNT(*), MIN(creationtime) FROM message WHERE "_s
                              + condition + u" GROUP BY type ORDER BY type"_s,
                          values);
    for (const QVariantList &row : rows)
        result.append({row[0].toString(), row[1].toInt(), databaseTime(row[2])});
    return result;
}

std::optional<Row> MessageRows::find(int id)
{
    const auto rows = run(u"SELECT %1 FROM message WHERE messageid = ?"_s.arg(rowColumns), {id});
    if (rows.isEmpty())
        return std::nullopt;
    return toRow(rows.first());
}

QList<Row> MessageRows::page(const QString &type, int after, int limit, const QString &cardNumber,
                             const QDateTime &writtenBefore)
{
    QString condition = u"messageid > ?"_s;
    QVariantList values{after};
    if (!type.isEmpty()) {
        condition += u" AND type = ?"_s;
        values.append(type);
    }
    if (!cardNumber.isEmpty()) {
        condition += u" AND cardnumber = ?"_s;
        values.append(cardNumber);
    }
    if (writtenBefore.isValid()) {
        condition += u" AND creationtime < ?"_s;
        values.append(writtenBefore.toString(u"yyyy-MM-dd HH:mm:ss"_s));
    }
    values.append(limit);
    QList<Row> result;
    const auto rows = run(
        u"SELECT %1 FROM message WHERE %2 ORDER BY messageid LIMIT ?"_s.arg(rowColumns, condition),
        values);
    for (const QVariantList &row : rows)
        result.append(toRow(row));
    return result;
}

int MessageRows::count(const QString &type, const QDateTime &writtenBefore)
{
    QStringList conditions;
    QVariantList values;
    if (!type.isEmpty()) {
        conditions.append(u"type = ?"_s);
        values.append(type);
    }
    if (writtenBefore.isValid()) {
        conditions.append(u"creationtime < ?"_s);
        values.append(writtenBefore.toString(u"yyyy-MM-dd HH:mm:ss"_s));
    }
    return number(
        u"SELECT COUNT(*) FROM message"_s
            + (conditions.isEmpty() ? QString() : u" WHERE "_s + conditions.join(u" AND "_s)),
        values);
}

int MessageRows::countBehind(const QString &type, int id)
{
    return number(u"SELECT COUNT(*) FROM message WHERE type = ? AND messageid > ?"_s, {type, id});
}

int MessageRows::countBefore(const QString &type, int id)
{
    return number(u"SELECT COUNT(*) FROM message WHERE type = ? AND messageid < ?"_s, {type, id});
}

int MessageRows::lastId()
{
    return number(u"SELECT MAX(messageid) FROM message"_s, {});
}

bool MessageRows::isUnused()
{
    if (databaseFile().isEmpty()
        || number(u"SELECT COUNT(*) FROM queues.sqlite_master WHERE lower(name) = 'message' AND "
                  "type = 'table' AND upper(sql) LIKE '%AUTOINCREMENT%'"_s,
                  {})
               == 0)
        return false;
    return number(u"SELECT COUNT(*) FROM queues.sqlite_sequence WHERE lower(name) = 'message'"_s,
                  {})
           == 0;
}

QList<int> MessageRows::insert(const QList<Row> &rows, const std::function<void(int)> &written)
{
    QList<int> ids;
    inTransaction([&](QSqlDatabase &database) {
        // Prepared once: the service cannot write during this transaction.
        QSqlQuery withTime(database);
        QSqlQuery withoutTime(database);
        prepare(
            withTime,
            u"INSERT INTO message (type, body, cardnumber, statuscode, creationtime) VALUES (?, ?, ?, ?, ?)"_s);
        prepare(withoutTime,
                u"INSERT INTO message (type, body, cardnumber, statuscode) VALUES (?, ?, ?, ?)"_s);
        for (const Row &row : rows) {
            const bool hasTime = row.creationTime.isValid();
            QVariantList values{row.type, QString::fromUtf8(row.body), orEmpty(row.cardNumber),
                                orEmpty(row.statusCode)};
            if (hasTime)
                values.append(row.creationTime.toString(u"yyyy-MM-dd HH:mm:ss"_s));
            QSqlQuery &query = hasTime ? withTime : withoutTime;
            bindAndRun(query, values);
            ids.append(query.lastInsertId().toInt());
            if (written)
                written(static_cast<int>(ids.size()));
        }
    });
    return ids;
}

bool MessageRows::remove(int id)
{
    bool isRemoved = false;
    inTransaction([&](QSqlDatabase &database) {
        QSqlQuery query(database);
        execute(query, u"DELETE FROM message WHERE messageid = ?"_s, {id});
        isRemoved = query.numRowsAffected() == 1;
    });
    return isRemoved;
}

std::optional<int> MessageRows::requeue(int id)
{
    std::optional<int> newId;
    inTransaction([&](QSqlDatabase &database) {
        QSqlQuery copy(database);
        execute(
            copy,
            u"INSERT INTO message (type, body, cardnumber, statuscode, creationtime) SELECT type, body, cardnumber, statuscode, creationtime FROM message WHERE messageid = ?"_s,
            {id});
        if (copy.numRowsAffected() != 1)
            return;
        const int writtenId = copy.lastInsertId().toInt();
        QSqlQuery removal(database);
        execute(removal, u"DELETE FROM message WHERE messageid = ?"_s, {id});
        // The service may have delivered it meanwhile; then there is nothing to requeue.
        if (removal.numRowsAffected() != 1)
            throw Failure(
                NotFound,
                text("Row %1 has just been delivered", "Строка %1 только что доставлена").arg(id));
        newId = writtenId;
    });
    return newId;
}

QList<QVariantList> MessageRows::run(const QString &statement, const QVariantList &values)
{
    QList<QVariantList> rows;
    QSqlQuery query(connection());
    query.setForwardOnly(true);
    execute(query, statement, values);
    const int width = statement.startsWith(u"SELECT messageid"_s) ? 6 : 3;
    while (query.next()) {
        QVariantList row;
        for (int column = 0; column < width; ++column) {
            const QVariant value = query.value(column);
            row.append(value);
        }
        rows.append(row);
    }
    return rows;
}

int MessageRows::number(const QString &statement, const QVariantList &values)
{
    QSqlQuery query(connection());
    execute(query, statement, values);
    return query.next() ? query.value(0).toInt() : 0;
}

QJsonObject databasePlace()
{
    const QString driver = settings::database::driver.value();
    const QString file = databaseFile();
    if (!file.isEmpty())
        return {{u"driver"_s, driver}, {u"place"_s, file}};
    const QString socket = settings::database::socket.value();
    const QString host = settings::database::host.value();
    const QString schema = settings::database::schemaName();
    return {{u"driver"_s, driver},
            {u"place"_s, schema + u" @ "_s + (socket.isEmpty() ? host : socket)}};
}

QString databaseFile()
{
    if (settings::database::driver.value() != u"QSQLITE")
        return {};
    return settings::database::fileName();
}

void requireDatabase()
{
    const QString file = databaseFile();
    if (file.isEmpty())
        return;
    const FileAccess access = fileAccess(file);
    if (access == FileAccess::Missing)
        throw Failure(NoDatabase,
                      text("There is no database %1; the service creates it at its first start",
                           "Базы данных %1 нет; служба создаёт её при первом запуске")
                          .arg(file));
    if (access == FileAccess::Denied)
        throw Failure(
            NoDatabase,
            text("No rights: this account cannot read the database %1 (run queuectl as root)",
                 "Нет прав: эта учётная запись не может читать базу данных %1 (запустите queuectl "
                 "от root)")
                .arg(file));
    if (QFileInfo(file).size() == 0)
        throw Failure(NoDatabase,
                      text("The database %1 is an empty file; the service creates its tables",
                           "База данных %1 — пустой файл; таблицы в нём создаёт служба")
                          .arg(file));
}

} // namespace queuectl
