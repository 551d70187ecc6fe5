#include "engine/dao.h"

#include "shared/core/basicexception.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/databasevalues.h"
#include "shared/core/serverlock.h"
#include "shared/core/singleton.h"
#include "shared/core/sqlitestatement.h"

#include <log4qt/logmanager.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlDatabase>
#include <QSqlError>

#include <algorithm>
#include <chrono>

using namespace Qt::StringLiterals;

namespace queue {

namespace {

/// A check costs as much as a small statement, and a worker runs thousands of statements a second.
constexpr auto fileCheckInterval = std::chrono::milliseconds(100);

constexpr auto typeCountsStatement =
    "SELECT type, COUNT(*) FROM message GROUP BY type ORDER BY type ASC"_L1;
constexpr auto countByTypeStatement = "SELECT COUNT(messageid) FROM message WHERE type = :type"_L1;
constexpr auto countByTypeAndCardStatement =
    "SELECT COUNT(messageid) FROM message WHERE type = :type AND cardnumber=:cardNumber"_L1;
constexpr auto readTemplate =
    "SELECT messageid, type, body, cardnumber, statuscode FROM message {CONDITION} ORDER BY messageid {ORDER} LIMIT :limit"_L1;
constexpr auto plainCondition = "WHERE type = :type AND messageid > :failId "_L1;
constexpr auto cardCondition = "AND cardnumber=:cardNumber"_L1;
constexpr auto statusUpdateStatement =
    "UPDATE message SET statuscode=:statusCode WHERE messageid=:id"_L1;
constexpr auto removalStatement = "DELETE FROM message WHERE messageid = :messageid"_L1;
// The probe names the schema, so it also fails when the schema is missing.
constexpr auto probeStatement =
    "SELECT COUNT(messageid), creationtime FROM queues.message LIMIT 1"_L1;
constexpr auto markerStatement =
    "SELECT 1 FROM message WHERE messageid < :id AND type = :type AND body LIKE :marker LIMIT 1"_L1;

ConnectionFactory *connectionFactory()
{
    return Singleton<ConnectionFactory>::instance();
}

QString readStatement(bool withCard, QLatin1StringView order)
{
    QString condition = plainCondition;
    if (withCard)
        condition += cardCondition;
    return QString(readTemplate).replace("{CONDITION}"_L1, condition).replace("{ORDER}"_L1, order);
}

QString errorText(const QSqlQuery &query)
{
    return databaseErrorText(query.lastError(), query.lastQuery());
}

QString errorText(const SqliteStatement &statement)
{
    return databaseErrorText(statement.lastError());
}

} // namespace

/// The statements of each delivery, executed without Qt's driver.
struct DAO::DirectStatements
{
    explicit DirectStatements(sqlite3 *connection)
        : read(connection, readStatement(false, "asc"_L1).toUtf8())
        , removal(connection, removalStatement.latin1())
        , begin(connection, "BEGIN IMMEDIATE")
        , commit(connection, "COMMIT")
        , rollback(connection, "ROLLBACK")
    {
    }

    bool arePrepared() const
    {
        return read.isPrepared() && removal.isPrepared() && begin.isPrepared()
               && commit.isPrepared() && rollback.isPrepared();
    }

    SqliteStatement read;
    SqliteStatement removal;
    /// Waits for the till's lock before anything has been read.
    SqliteStatement begin;
    SqliteStatement commit;
    SqliteStatement rollback;
};

DAO::DAO()
    : logger(Log4Qt::LogManager::logger(u"dao"_s))
{
}

DAO::~DAO()
{
    if (connectionName.isEmpty())
        return;
    logger->trace(u"Удаление соединения с базой данных: %1"_s, connectionName);
    direct.reset();
    connectionFactory()->removeConnection(connectionName);
}

bool DAO::hasMessages(const QString &type, const QString &cardNumber)
{
    const bool anyCard = cardNumber.isEmpty();
    QSqlQuery &query = anyCard ? countByType : countByTypeAndCard;
    if (anyCard)
        execQuery(query, Bindings{{u":type"_s, type}});
    else
        execQuery(query, Bindings{{u":type"_s, type}, {u":cardNumber"_s, cardNumber}});
    const bool found = query.next() && query.value(0).toInt() >= 1;
    query.finish();
    return found;
}

Message DAO::getMessage(const QString &type, int failId, bool descending, const QString &cardNumber)
{
    if (logger->isTraceEnabled()) {
        logger->trace(u"Получение сообщения типа %1%2"_s.arg(
            type, failId == -1 ? QString() : u" с идентификатором > %1"_s.arg(failId)));
    }
    const QList<Message> messages = getMessages(type, failId, 1, descending, cardNumber);
    return messages.isEmpty() ? Message{} : messages.first();
}

QList<Message> DAO::getMessages(const QString &type, int failId, int limit, bool descending,
                                const QString &cardNumber)
{
    if (!isReady())
        return {};
    const bool anyCard = cardNumber.isEmpty();
    if (direct && !descending && anyCard) {
        execQuery(direct->read, type, failId, limit);
        return takeMessages(direct->read, limit);
    }
    QSqlQuery &query = descending ? (anyCard ? readDescending : readDescendingByCard)
                                  : (anyCard ? read : readByCard);
    if (anyCard) {
        execQuery(query,
                  Bindings{{u":type"_s, type}, {u":limit"_s, limit}, {u":failId"_s, failId}});
    } else {
        execQuery(query, Bindings{{u":type"_s, type},
                                  {u":limit"_s, limit},
                                  {u":failId"_s, failId},
                                  {u":cardNumber"_s, cardNumber}});
    }
    return takeMessages(query, limit);
}

void DAO::deleteMessage(int id)
{
    logger->debug(u"Удаление сообщения с идентификатором '%1'"_s, id);
    if (!isReady())
        return;
    if (!gate)
        return remove(id);
    const auto turn =
        gate->remove(id, [this](const std::vector<int> &ids) { return removeAll(ids); });
    // Without a turn another worker has removed the row in its transaction.
    if (turn)
        remove(id);
}

void DAO::connect()
{
    logger->debug(u"Подключение к базе данных"_s);
    ConnectionFactory::setWithCheck(false);
    // Without the connection the statements cannot be prepared again.
    unprepared.clear();
    // A failed connection would be handed out again.
    if (!connectionName.isEmpty())
        connectionFactory()->removeConnection(connectionName);
    isClaimed = false;
    direct.reset();
    connectionName = connectionFactory()->getConnection().connectionName();

    const QSqlDatabase database = connectionFactory()->getConnection();
    gate = connectionFactory()->gateOf(database);
    prepareQueries(database);
    if (sqlite3 *const handle = SqliteStatement::handleOf(database))
        direct = std::make_unique<DirectStatements>(handle);
    if (direct && !direct->arePrepared())
        direct.reset();
    connected = true;
}

void DAO::prepareQueries(const QSqlDatabase &database)
{
    const std::pair<QSqlQuery &, QString> statements[] = {
        {typeCounts, typeCountsStatement},
        {countByType, countByTypeStatement},
        {countByTypeAndCard, countByTypeAndCardStatement},
        {read, readStatement(false, "asc"_L1)},
        {readByCard, readStatement(true, "asc"_L1)},
        {readDescending, readStatement(false, "desc"_L1)},
        {readDescendingByCard, readStatement(true, "desc"_L1)},
        {statusUpdate, statusUpdateStatement},
        {removal, removalStatement},
        {probe, probeStatement},
        {marker, markerStatement},
    };
    for (const auto &[query, statement] : statements)
        query = QSqlQuery(database);
    for (QSqlQuery *query :
         {&typeCounts, &read, &readByCard, &readDescending, &readDescendingByCard, &marker})
        query->setForwardOnly(true);
    for (const auto &[query, statement] : statements) {
        if (!query.prepare(statement))
            unprepared.insert(&query);
    }
}

bool DAO::hasEarlierMessage(const QString &type, int id, const QString &markerText)
{
    execQuery(marker, Bindings{{u":id"_s, id},
                               {u":type"_s, type},
                               {u":marker"_s, QString(u'%' + markerText + u'%')}});
    const bool found = marker.next();
    marker.finish();
    return found;
}

QList<TypeCount> DAO::getMessageTypeCounts()
{
    execQuery(typeCounts, Bindings{});
    QList<TypeCount> counts;
    while (typeCounts.next())
        counts.append({typeCounts.value(0).toString(), typeCounts.value(1).toInt()});
    typeCounts.finish();
    return counts;
}

void DAO::updateStatusCode(int id, const QString &statusCode)
{
    if (!isReady())
        return;
    const WriteGate::Turn turn = WriteGate::enter(gate);
    execQuery(statusUpdate, Bindings{{u":id"_s, id}, {u":statusCode"_s, statusCode}});
}

QueueInfo DAO::getQueueInfo()
{
    QueueInfo info;
    if (execute(probe, Bindings{}) && probe.next()) {
        info.count = probe.value(0).toInt();
        info.firstMessageTime = databaseTime(probe.value(1));
    }
    probe.finish();
    return info;
}

void DAO::onPassEnded()
{
    if (connected)
        connectionFactory()->shrinkLog(connectionName);
}

bool DAO::claimType(const QString &type)
{
    // The statement that reads may reconnect first; the rows it reads without a lock on the type do
    // not count.
    if (isClaimed || !connected)
        return true;
    isClaimed = askLock(u"GET_LOCK('%1', 0)"_s, type).toInt() == 1;
    return isClaimed || !connected;
}

void DAO::releaseType(const QString &type)
{
    if (isClaimed)
        askLock(u"RELEASE_LOCK('%1')"_s, type);
    isClaimed = false;
}

QString DAO::holderOfType(const QString &type)
{
    const QVariant holder = askLock(u"IS_USED_LOCK('%1')"_s, type);
    // A number that is NULL reads as 0.
    return holder.isNull() ? QString() : holder.toString();
}

QVariant DAO::askLock(const QString &function, const QString &type)
{
    const QSqlDatabase database = QSqlDatabase::database(connectionName, false);
    QSqlQuery query(database);
    query.prepare(u"SELECT "_s + function.arg(serverlock::typeLock(database.databaseName(), type)));
    execQuery(query, Bindings{});
    return query.next() ? query.value(0) : QVariant();
}

int DAO::getErrorsCount() const
{
    return errorsCount;
}

void DAO::resetErrorsCount()
{
    errorsCount = 0;
}

bool DAO::isReady()
{
    if (connected)
        return true;
    try {
        connect();
        return true;
    } catch (const BasicException &exception) {
        logger->error(exception.tr().ru());
        ++errorsCount;
        return false;
    }
}

void DAO::remove(int id)
{
    // A reconnect replaces the direct statements.
    if (!isReady())
        return;
    if (direct)
        execQuery(direct->removal, id);
    else
        execQuery(removal, Bindings{{u":messageid"_s, id}});
}

bool DAO::removeAll(const std::vector<int> &ids)
{
    if (!direct || !isFileCurrentFor(direct->removal))
        return false;
    if (!direct->begin.execute()) {
        logger->debug(u"Сообщения удаляются по одному: %1"_s, direct->begin.lastError().text());
        return false;
    }
    auto undo = qScopeGuard([this] {
        // SQLite may have ended the transaction already; then it refuses ROLLBACK, and BEGIN
        // succeeds. In a transaction that cannot be ended, later writes of the connection would
        // never reach the disk.
        if (!direct->rollback.execute() && !(direct->begin.execute() && direct->rollback.execute()))
            connected = false;
    });
    const bool isEachRemoved =
        std::ranges::all_of(ids, [this](int id) { return direct->removal.execute(id); });
    if (isEachRemoved && direct->commit.execute()) {
        undo.dismiss();
        return true;
    }
    const SqliteStatement &failed = isEachRemoved ? direct->commit : direct->removal;
    logger->debug(u"Сообщения удаляются по одному: %1"_s, failed.lastError().text());
    return false;
}

template <typename Statement, typename... Values>
void DAO::execQuery(Statement &statement, const Values &...values)
{
    if (!isReady())
        return;
    if (execute(statement, values...))
        return;

    // A failed statement does not mean a lost database; the probe tells the two apart.
    const bool isAlive = connectionFactory()->isConnectionCurrent(connectionName) && run(probe, {});
    probe.finish();
    if (isAlive)
        return;
    logger->error(u"База данных недоступна"_s);
    ++errorsCount;
    connected = false;
    isClaimed = false;
}

template <typename Statement, typename... Values>
bool DAO::execute(Statement &statement, const Values &...values)
{
    QString error;
    if (!isFileCurrentFor(statement))
        error = u"файл базы данных удалён или заменён"_s;
    else if (!run(statement, values...))
        error = errorText(statement);
    else
        return true;

    statement.finish();
    logger->warn(u"Ошибка при выполнении запроса: %1"_s, error);
    ++errorsCount;
    return false;
}

template <typename... Values>
bool DAO::run(SqliteStatement &statement, const Values &...values)
{
    return statement.execute(values...);
}

bool DAO::run(QSqlQuery &query, Bindings bindings)
{
    // Preparing a prepared statement again would destroy it while the cause of the failure lasts,
    // and the next call would fail as well.
    if (unprepared.contains(&query)) {
        if (!query.prepare(query.lastQuery()))
            return false;
        unprepared.remove(&query);
    }
    // After connecting and preparing, which forget bound values.
    for (const Binding &binding : bindings)
        query.bindValue(binding.name, binding.value);
    return query.exec();
}

bool DAO::isFileCurrentFor(const QSqlQuery &query)
{
    return isFileCurrent(&query == &read || &query == &removal);
}

bool DAO::isFileCurrentFor(const SqliteStatement &)
{
    return isFileCurrent(true);
}

bool DAO::isFileCurrent(bool isFrequent)
{
    if (isFrequent && !nextFileCheck.hasExpired())
        return true;
    if (!connectionFactory()->isConnectionCurrent(connectionName))
        return false;
    nextFileCheck.setRemainingTime(fileCheckInterval);
    return true;
}

template <typename Statement>
QList<Message> DAO::takeMessages(Statement &rows, int limit)
{
    QList<Message> messages;
    // Fetching one row beyond the limit costs as much as any other row.
    while (messages.size() != limit && rows.next()) {
        Message message;
        message.id = rows.value(0).toInt();
        message.type = rows.value(1).toString();
        message.body = toBody(message, rows.value(2).toByteArray());
        message.cardNumber = rows.value(3).toString();
        message.statusCode = rows.value(4).toString();
        messages.append(message);
    }
    rows.finish();
    return messages;
}

QVariantMap DAO::toBody(const Message &message, const QByteArray &text)
{
    QJsonParseError error;
    const QVariantMap body = QJsonDocument::fromJson(text, &error).object().toVariantMap();
    if (error.error != QJsonParseError::NoError) {
        logger->error(
            u"Не удалось получить сообщение из БД: id = %1, тип = %2, сообщение = '%3'"_s.arg(
                QString::number(message.id), message.type, QString::fromUtf8(text)));
        ++errorsCount;
    }
    return body;
}

} // namespace queue
