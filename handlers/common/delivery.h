#pragma once

#include "handlers/common/preparedrequest.h"
#include "shared/core/tr.h"
#include "shared/net/restclient.h"

#include <memory>

class BasicHandler;

namespace Log4Qt {
class Logger;
}

/// A client for one delivery that logs its exchanges on `logger`.
std::shared_ptr<RestClient> createClient(Log4Qt::Logger &logger);
/// The same with the timeout of `request`, for a handler that sets more options before it sends.
std::shared_ptr<RestClient> createClient(Log4Qt::Logger &logger, const PreparedRequest &request);

/// Sets the request's timeout on the client, if there is one.
void applyTimeout(RestClient &client, const PreparedRequest &request);

/// Performs the exchange. Blocks until it has ended; then the client has the result. Does not
/// change the timeout.
void sendRequest(RestClient &client, const PreparedRequest &request);
/// The same with a new client and the request's timeout. Returns the client with the result.
std::shared_ptr<RestClient> sendRequest(Log4Qt::Logger &logger, const PreparedRequest &request);

/// The whole delivery of most types: performs the exchange and logs its failure. True for an answer
/// with a 2xx status.
bool deliverRequest(Log4Qt::Logger &logger, const PreparedRequest &request);

/// Whether the last exchange was answered with a 2xx status. The reply's content does not matter.
bool succeeded(const RestClient &client);
/// The same, and logs a failure in the line that most handlers use.
bool succeeded(const RestClient &client, Log4Qt::Logger &logger);
bool succeeded(const http::Response &response, Log4Qt::Logger &logger);

/// For types whose messages are finished by any complete answer: a refusal drops the message. False
/// without a complete answer.
bool finishedByAnyAnswer(BasicHandler &handler, const RestClient &client);

/// The reason "refused by the service", with the service's explanation if there is one.
QString refusalText(const QString &explanation);

/// The line that most handlers log for a failed request.
void logSendError(Log4Qt::Logger &logger, const tr::Tr &errorText);
