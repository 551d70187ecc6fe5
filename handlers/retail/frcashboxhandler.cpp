#include "handlers/retail/frcashboxhandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"

#include <log4qt/logger.h>

#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

constexpr int unauthorizedStatus = 401;

constexpr RequestRules rules{
    .payload = Payload::Map,
    .timeout = Timeout::unset(),
};

/// The id of a new session; empty on failure.
QString logIn(RestClient &client, const QString &url, const QString &credentials)
{
    const PreparedRequest request{
        .url = addressOf(url + u"login"_s),
        .headers = {{u"Content-Type"_s, u"application/json"_s}, {u"Authorization"_s, credentials}},
    };
    sendRequest(client, request);
    return client.responseJson().object().value(u"sessionId"_s).toString();
}

/// The reason why the request was answered with 401 again. Only a refused login is a matter of the
/// account: a lost one is not, nor is a new session that the service does not accept.
bool keepWithoutSession(BasicHandler &handler, const http::Response &login, const QString &session)
{
    if (!session.isEmpty())
        return handler.keep(u"сервис не принял новый сеанс"_s);
    if (login.errorCode == http::noError)
        return handler.keep(u"в ответе на вход нет поля sessionId"_s,
                            http::FailureKind::Credentials);
    return handler.keep(u"вход не удался: %1"_s.arg(login.errorText.ru()), login.kind());
}

/// Decides by the client's last exchange.
bool isDone(BasicHandler &handler, const RestClient &client)
{
    Log4Qt::Logger &logger = *handler.logger();
    if (!succeeded(client, logger))
        return false;
    const QJsonDocument reply = client.responseJson();
    if (reply.isEmpty()) {
        logger.error(u"Нет связи с сервисом"_s);
        return handler.keep(u"ответ пуст или не прочитан"_s);
    }
    if (!reply.object().contains(u"error"_s))
        return true;
    logger.error(u"Сервис вернул сообщение об ошибке"_s);
    const QJsonObject error = reply.object().value(u"error"_s).toObject();
    const QString text = error.value(u"message"_s).toString(u"Ошибка при работе с ФР"_s);
    const QString code = QString::number(error.value(u"code"_s).toInt());
    logger.error(u"Код: %1, ошибка: %2"_s.arg(code, text));
    return handler.keep(u"код ошибки %1: %2"_s.arg(code, text));
}

} // namespace

FrCashboxHandler::FrCashboxHandler()
    : BasicHandler(u"frcashbox"_s)
{
}

bool FrCashboxHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const auto base = messageValue<QString>(message, u"url"_s);
    PreparedRequest request = readRequest(message, rules);
    request.url = addressOf(base + messageValue<QString>(message, u"path"_s));
    const auto client = sendRequest(*logger(), request);
    if (client->statusCode() != unauthorizedStatus)
        return isDone(*this, *client);

    logger()->warn(u"Требуется авторизация"_s);
    const QString session = logIn(*client, base, messageValue<QString>(message, u"auth"_s));
    const http::Response login = client->response();
    // Empty after a failed login; only the answer to the request decides.
    request.headers.insert(u"SessionId"_s, session);
    sendRequest(*client, request);
    if (isDone(*this, *client))
        return true;
    return client->errorCode() == http::authenticationError
           && keepWithoutSession(*this, login, session);
}
