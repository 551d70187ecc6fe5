#pragma once

#include "engine/message.h"
#include "shared/core/writegate.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QList>
#include <QSet>
#include <QSqlQuery>
#include <QString>

#include <initializer_list>
#include <memory>
#include <vector>

class QSqlDatabase;
class SqliteStatement;

namespace Log4Qt {
class Logger;
}

/// The table as a whole.
struct QueueInfo
{
    /// -1: the query failed.
    int count = -1;
    /// When the oldest row was written; invalid when there is none.
    QDateTime firstMessageTime;
};

namespace queue {

/// Reads, changes and deletes rows of the table `message`. The till creates and fills the table;
/// DBQueueBroker adds rows for the service itself. A failed statement is logged, counted and read
/// as an empty queue. If a probe statement fails as well, the next call reconnects. Only connect()
/// throws.
///
/// Thread: one store per thread, never shared, since the prepared statements are members.
class DAO
{
public:
    DAO();
    /// Closes the thread's connection.
    virtual ~DAO();
    DAO(const DAO &) = delete;
    DAO &operator=(const DAO &) = delete;

    /// Whether there are rows of `type`; with a card, of that card.
    virtual bool hasMessages(const QString &type, const QString &cardNumber);
    /// The first message of `type` with an id above `failId` (-1: any), or the last one if
    /// `descending`; with a card, of that card. The id of the result is below 1 when there is none.
    virtual Message getMessage(const QString &type, int failId, bool descending,
                               const QString &cardNumber);
    /// As getMessage(), up to `limit` messages. A row without a JSON object has an empty body.
    virtual QList<Message> getMessages(const QString &type, int failId, int limit, bool descending,
                                       const QString &cardNumber);
    virtual void deleteMessage(int id);
    /// Opens the connection of this thread, closing the former one, and prepares all statements.
    /// Throws BasicException.
    virtual void connect();
    /// Whether a message of `type` older than `id` holds `marker` in its body text. `%` and `_` in
    /// the marker are wildcards.
    virtual bool hasEarlierMessage(const QString &type, int id, const QString &marker);

    /// The types that have rows, in ascending order.
    QList<TypeCount> getMessageTypeCounts();
    void updateStatusCode(int id, const QString &statusCode);
    /// Requires an earlier connect().
    QueueInfo getQueueInfo();
    /// Call at the end of a worker's pass: truncates an SQLite write-ahead log that has grown
    /// beyond the usual size. Waits for no other program, counts no errors, and does nothing on a
    /// server.
    void onPassEnded();
    /// On a server, locks the type for this connection until releaseType() or the connection's end;
    /// does nothing if the type is locked already. False when another connection has the lock, or
    /// the server does not answer.
    bool claimType(const QString &type);
    /// Whether this connection still has its lock on the type. A new connection does not.
    bool hasClaim() const { return isClaimed; }
    void releaseType(const QString &type);
    /// The connection id of the lock's owner; empty when the type is not locked, or the server does
    /// not tell.
    QString holderOfType(const QString &type);
    /// Errors of this store since its start or the last reset.
    int getErrorsCount() const;
    void resetErrorsCount();

private:
    struct Binding
    {
        QString name;
        QVariant value;
    };
    using Bindings = std::initializer_list<Binding>;
    struct DirectStatements;

    /// Connects if necessary. False when that fails; the failure is counted.
    bool isReady();
    void prepareQueries(const QSqlDatabase &database);
    void remove(int id);
    /// Removes all of these rows in one transaction, or none of them. A failure is not counted:
    /// afterwards each row's own store runs its own statement.
    bool removeAll(const std::vector<int> &ids);
    /// The result of one of the server's lock functions for the type's lock.
    QVariant askLock(const QString &function, const QString &type);
    // A statement is a QSqlQuery with bindings, or an SqliteStatement with values. Call isReady()
    // before an SqliteStatement, since connecting replaces them.
    /// On failure the statement has no rows.
    template <typename Statement, typename... Values>
    void execQuery(Statement &statement, const Values &...values);
    /// Logs and counts a failure.
    template <typename Statement, typename... Values>
    bool execute(Statement &statement, const Values &...values);
    bool run(QSqlQuery &query, Bindings bindings);
    template <typename... Values>
    static bool run(SqliteStatement &statement, const Values &...values);
    template <typename Statement>
    QList<Message> takeMessages(Statement &rows, int limit);
    /// Checks that the database file has not been deleted or replaced. For the two statements of
    /// each delivery the check runs at most every 100 ms; until the next check they work on the
    /// rows of the old file.
    bool isFileCurrentFor(const QSqlQuery &query);
    bool isFileCurrentFor(const SqliteStatement &frequent);
    bool isFileCurrent(bool isFrequent);
    QVariantMap toBody(const Message &message, const QByteArray &text);

    QString connectionName;
    QSqlQuery typeCounts;
    QSqlQuery countByType;
    QSqlQuery countByTypeAndCard;
    QSqlQuery read;
    QSqlQuery readByCard;
    QSqlQuery readDescending;
    QSqlQuery readDescendingByCard;
    QSqlQuery statusUpdate;
    QSqlQuery removal;
    QSqlQuery probe;
    QSqlQuery marker;
    bool connected = false;
    bool isClaimed = false;
    int errorsCount = 0;
    Log4Qt::Logger *logger;
    /// Expired at first, so the first statement checks.
    QDeadlineTimer nextFileCheck;
    /// Statements that could not be prepared. They are prepared again before their next execution.
    QSet<const QSqlQuery *> unprepared;
    /// Null before the first connection, and on a server.
    WriteGate *gate = nullptr;
    /// Null on a server, and where SQLite cannot be called directly or has refused a statement:
    /// then Qt's driver executes the queries above, and each row is deleted on its own.
    std::unique_ptr<DirectStatements> direct;
};

} // namespace queue
