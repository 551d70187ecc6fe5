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
#include <vector>

namespace Log4Qt {
class Logger;
}

/// The table as a whole.
struct QueueInfo
{
    /// -1: the database could not be asked.
    int count = -1;
    /// When the oldest row was written; invalid when there is none.
    QDateTime firstMessageTime;
};

namespace queue {

/// Reads, changes and deletes rows of the table `message`, which the till creates and fills; rows
/// of the service's own are added by DBQueueBroker. A failed statement is logged, counted and read
/// as an empty queue; when the database does not answer a probe either, the next call connects
/// again. Only connect() throws.
///
/// Thread: one store per thread, never shared, since the prepared statements are members.
class DAO
{
public:
    DAO();
    /// Removes the thread's connection.
    virtual ~DAO();
    DAO(const DAO &) = delete;
    DAO &operator=(const DAO &) = delete;

    /// Whether rows of `type` wait; with a card, of that card.
    virtual bool hasMessages(const QString &type, const QString &cardNumber);
    /// The first message of `type` with an id above `failId` (-1: any), the last one when
    /// `descending`; with a card, of that card. Its id is below 1 when there is none.
    virtual Message getMessage(const QString &type, int failId, bool descending,
                               const QString &cardNumber);
    /// As getMessage(), up to `limit` of them. A row without a JSON object comes with an empty
    /// body.
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
    /// Only for a store that has connected.
    QueueInfo getQueueInfo();
    /// A worker's pass is over: gives the disk back that an SQLite file's log has taken beyond the
    /// ordinary. Waits for nobody, is counted nowhere, and does nothing on a server.
    void onPassEnded();
    /// On a server, has the type for this connection until releaseType() or its end; does nothing
    /// while it has the type already. False when another connection has it, or the server does not
    /// tell.
    bool claimType(const QString &type);
    /// Whether the connection has the claimed type still: one that was opened later has not.
    bool hasClaim() const { return isClaimed; }
    void releaseType(const QString &type);
    /// The server's number of the connection that has the type; empty when it does not tell.
    QString holderOfType(const QString &type);
    /// How many errors this store has met since its start or the last reset.
    int getErrorsCount() const;
    void resetErrorsCount();

private:
    struct Binding
    {
        QString name;
        QVariant value;
    };

    /// Connects if need be. False when that has failed, which is counted.
    bool isReady();
    /// Removes all of these rows in one transaction, or none of them. A failure is not counted:
    /// each row's own store then runs its own statement.
    bool removeAll(const std::vector<int> &ids);
    /// What one of the server's functions on locks says of the lock of the type.
    QVariant askLock(const QString &function, const QString &type);
    /// Leaves `query` without rows when it could not be run.
    void execQuery(QSqlQuery &query, std::initializer_list<Binding> bindings);
    /// A failure is logged and counted.
    bool execute(QSqlQuery &query, std::initializer_list<Binding> bindings);
    bool run(QSqlQuery &query, std::initializer_list<Binding> bindings);
    /// Looks at the database's file; for the two statements of each delivery only from time to
    /// time. What these do in between, on a file that was deleted or replaced, they do to the rows
    /// of the old one.
    bool isFileCurrentFor(const QSqlQuery &query);
    Message toMessage(const QSqlQuery &row);

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
    /// Expired at first.
    QDeadlineTimer nextFileCheck;
    /// Statements whose last preparation failed. They are prepared again before their next
    /// execution.
    QSet<const QSqlQuery *> unprepared;
    /// Null before the first connection, and on a server.
    WriteGate *gate = nullptr;
};

} // namespace queue
