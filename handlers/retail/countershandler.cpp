#include "handlers/retail/countershandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"

#include <log4qt/logger.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

constexpr int timeoutSeconds = 10;

} // namespace

CountersHandler::CountersHandler()
    : BasicHandler(u"counterchange"_s)
{
}

bool CountersHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const auto operation = messageValue<QByteArray>(message, u"message"_s);
    PreparedRequest request{
        .url = messageAddress(message, u"url"_s),
        .headers = jsonContentType(),
        .body = operation,
        .timeoutSeconds = timeoutSeconds,
    };
    setCredentials(request.url, messageValue<QString>(message, u"user"_s),
                   messageValue<QString>(message, u"password"_s));
    const auto client = sendRequest(*logger(), request);
    if (succeeded(*client))
        return true;
    // The check below is an exchange of its own; the outcome must report the failure of this one.
    const http::Response failure = client->response();
    // The service may have refused the operation because it already has it.
    if (failure.errorCode == http::badRequestError) {
        const QJsonObject object = QJsonDocument::fromJson(operation).object();
        if (operationExists(request.url, object.value(u"operationId"_s).toString()))
            return doneBefore(u"сервис уже принял операцию"_s);
    }
    logSendError(*logger(), failure.errorText);
    return keep(failure.errorText.ru(), failure.kind());
}

bool CountersHandler::operationExists(const QUrl &url, const QString &operationId)
{
    logger()->info(u"Проверка существования операции"_s);
    const auto client = createClient(*logger());
    client->setTimeout(timeoutSeconds);
    QUrl check = url;
    // A slash in the identifier would divide the path.
    check.setPath(u"/v1/operations/%1/exists"_s.arg(
                      QString::fromLatin1(QUrl::toPercentEncoding(operationId))),
                  QUrl::TolerantMode);
    client->get(check, QJsonDocument(), jsonContentType());
    return succeeded(*client) && client->response().responseObject().value(u"result"_s).toBool();
}
