#pragma once

#include "shared/net/httpresponse.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

/// What handlers that make one request and judge its reply are tested with. A comparison that fails
/// fails the test that called it.

/// The only request of a delivery.
struct SentRequest
{
    /// The calls on the client, such as "setTimeout 15" and "POST http://host/path".
    QStringList steps;
    QByteArray body;
    QMap<QString, QString> headers = {{QStringLiteral("X-Till"), QStringLiteral("3")}};
};

/// Compares the request that was made, and that the handler's logger gets the exchange.
void compareRequest(const FakeRestClient &client, const SentRequest &sent);

/// Delivers the message to a service that answers so, and compares whether the message is finished
/// with and what the type's log says.
void compareOutcome(const QString &type, const QString &message, const http::Response &answer,
                    bool finished, const QStringList &lines);

/// The log line about an exchange that failed so.
QString failureLine(const http::Response &answer);

/// The column `answer`, with a row for each way in which the service does not answer at all.
void addLostExchanges();
