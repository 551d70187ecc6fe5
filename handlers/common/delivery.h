#pragma once

#include "handlers/common/preparedrequest.h"
#include "shared/core/tr.h"
#include "shared/net/restclient.h"

#include <memory>

class BasicHandler;

namespace Log4Qt {
class Logger;
}

/// A client for one delivery, which logs its exchanges on `logger`.
std::shared_ptr<RestClient> createClient(Log4Qt::Logger &logger);
/// The same with the timeout of `request`, for a handler that has more to set before it sends.
std::shared_ptr<RestClient> createClient(Log4Qt::Logger &logger, const PreparedRequest &request);

/// Gives the client the request's timeout, if it has one.
void applyTimeout(RestClient &client, const PreparedRequest &request);

/// Makes the exchange. Blocks until it has ended; the client then describes it. The timeout is left
/// as it is set.
void sendRequest(RestClient &client, const PreparedRequest &request);
/// The same by a new client with the request's timeout, which is handed back to be judged.
std::shared_ptr<RestClient> sendRequest(Log4Qt::Logger &logger, const PreparedRequest &request);

/// The whole delivery of most types: makes the exchange and logs its failure. True when it was
/// answered with a status of the 200s.
bool deliverRequest(Log4Qt::Logger &logger, const PreparedRequest &request);

/// Whether the last exchange was answered with a status of the 200s, whatever the reply holds.
bool succeeded(const RestClient &client);
/// The same, and the failure line that most handlers write.
bool succeeded(const RestClient &client, Log4Qt::Logger &logger);
bool succeeded(const http::Response &response, Log4Qt::Logger &logger);

/// The judgement of a type that any whole answer finishes: a refusal gives the message up. False:
/// no whole answer came.
bool finishedByAnyAnswer(BasicHandler &handler, const RestClient &client);

/// That the service has refused, with its own explanation where there is one.
QString refusalText(const QString &explanation);

/// The line that most handlers log when a request has failed.
void logSendError(Log4Qt::Logger &logger, const tr::Tr &errorText);
