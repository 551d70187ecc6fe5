#pragma once

#include <QJsonObject>
#include <QString>

/// Writes work for this service into the table `message`.
/// Reached through Singleton<DBQueueBroker>. Thread: any; the row goes through the connection of
/// the calling thread.
class DBQueueBroker
{
public:
    virtual ~DBQueueBroker();

    /// Appends one row. Throws BasicException when the row could not be written.
    virtual void enqueue(const QString &type, const QJsonObject &message,
                         const QString &cardNumber);
};
