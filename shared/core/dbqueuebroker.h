#pragma once

#include <QJsonObject>
#include <QString>

/// Adds messages for this service to the table `message`. Reached through Singleton<DBQueueBroker>.
/// Thread: any; the row is written over the calling thread's connection.
class DBQueueBroker
{
public:
    virtual ~DBQueueBroker();

    /// Appends one row. Throws BasicException when the row could not be written.
    virtual void enqueue(const QString &type, const QJsonObject &message,
                         const QString &cardNumber);
};
