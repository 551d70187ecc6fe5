#pragma once

#include <QString>
#include <QVariantMap>

/// One row of the table `message`. Ids of messages start at 1.
struct Message
{
    /// -1: there is no message.
    int id = -1;
    QString type;
    /// The row's JSON object; empty when the row holds none.
    QVariantMap body;
    QString cardNumber;
    /// A handler's own note on the row; most handlers do not use it.
    QString statusCode;
};

struct TypeCount
{
    QString type;
    int count = 0;
};
