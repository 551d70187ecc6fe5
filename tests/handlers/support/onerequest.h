#pragma once

#include "shared/net/httpresponse.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

/// Helpers for handlers that make one request and judge its reply. A failed comparison fails the
/// calling test.

/// The only request of a delivery.
struct SentRequest
{
    /// The calls on the client, such as "setTimeout 15" and "POST http://host/path".
    QStringList steps;
    QByteArray body;
    QMap<QString, QString> headers = {{QStringLiteral("X-Till"), QStringLiteral("3")}};
};

/// Compares the request, and checks that the exchange goes to the handler's logger.
void compareRequest(const FakeRestClient &client, const SentRequest &sent);

/// Delivers the message to a service that answers so; compares the outcome and the log of the type.
void compareOutcome(const QString &type, const QString &message, const http::Response &answer,
                    bool finished, const QStringList &lines);

/// The log line about an exchange that failed so.
QString failureLine(const http::Response &answer);

/// The column `answer`, with a row for each kind of missing answer.
void addLostExchanges();
