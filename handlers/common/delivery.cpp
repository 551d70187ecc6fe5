#include "handlers/common/delivery.h"

#include "engine/basichandler.h"
#include "shared/core/mockfactory.h"
#include "shared/net/httpparams.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

void sendWhole(RestClient &client, const PreparedRequest &request)
{
    http::Params params;
    params.method = request.verb == Verb::WholePut ? "PUT" : "PATCH";
    params.url = request.url;
    params.body = request.content();
    for (const auto &[name, value] : request.headers.asKeyValueRange())
        params.headers.insert(name.toUtf8(), value.toUtf8());
    client.send(params);
}

void post(RestClient &client, const PreparedRequest &request)
{
    std::visit([&](const auto &body) { client.post(request.url, body, request.headers); },
               request.body);
}

} // namespace

std::shared_ptr<RestClient> createClient(Log4Qt::Logger &logger)
{
    auto client = MockFactory<RestClient>::create();
    client->setLogger(&logger);
    return client;
}

std::shared_ptr<RestClient> createClient(Log4Qt::Logger &logger, const PreparedRequest &request)
{
    auto client = createClient(logger);
    applyTimeout(*client, request);
    return client;
}

void applyTimeout(RestClient &client, const PreparedRequest &request)
{
    if (request.timeoutSeconds)
        client.setTimeout(*request.timeoutSeconds);
}

void sendRequest(RestClient &client, const PreparedRequest &request)
{
    switch (request.verb) {
    case Verb::Post:
        post(client, request);
        return;
    case Verb::Put:
        client.put(request.url, request.content(), request.headers);
        return;
    case Verb::WholePut:
    case Verb::WholePatch:
        sendWhole(client, request);
        return;
    }
}

std::shared_ptr<RestClient> sendRequest(Log4Qt::Logger &logger, const PreparedRequest &request)
{
    auto client = createClient(logger, request);
    sendRequest(*client, request);
    return client;
}

bool deliverRequest(Log4Qt::Logger &logger, const PreparedRequest &request)
{
    return succeeded(*sendRequest(logger, request), logger);
}

bool succeeded(const RestClient &client)
{
    return client.errorCode() == http::noError;
}

bool succeeded(const RestClient &client, Log4Qt::Logger &logger)
{
    if (succeeded(client))
        return true;
    logSendError(logger, client.errorText());
    return false;
}

bool succeeded(const http::Response &response, Log4Qt::Logger &logger)
{
    if (response.errorCode == http::noError)
        return true;
    logSendError(logger, response.errorText);
    return false;
}

bool finishedByAnyAnswer(BasicHandler &handler, const RestClient &client)
{
    if (succeeded(client))
        return true;
    if (client.isNetworkError())
        return false;
    return handler.giveUp(u"сервис отказал, повтор не предусмотрен"_s);
}

QString refusalText(const QString &explanation)
{
    return explanation.isEmpty() ? u"сервис отказал"_s : u"сервис отказал: %1"_s.arg(explanation);
}

void logSendError(Log4Qt::Logger &logger, const tr::Tr &errorText)
{
    logger.error(u"Ошибка при отправке сообщения: %1"_s, errorText.ru());
}
