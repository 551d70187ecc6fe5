#include "handlers/payment/raiffeisensbphandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "handlers/common/replyword.h"

#include <log4qt/logger.h>

#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

/// With this number of addresses the state of the code is requested first.
constexpr qsizetype addressesWithState = 3;
constexpr QStringView completedRefund = u"COMPLETED";

http::Params deleteRequest(const QString &url, const RestClient::Headers &headers)
{
    http::Params params;
    params.method = "DELETE";
    params.url = QUrl(url);
    for (const auto &[name, value] : headers.asKeyValueRange())
        params.headers.insert(name.toUtf8(), value.toUtf8());
    return params;
}

} // namespace

/// Data that all requests of one delivery share.
struct RaiffeisenSbpHandler::Delivery
{
    std::shared_ptr<RestClient> client;
    RestClient::Headers headers;
    QByteArray refundBody;
};

RaiffeisenSbpHandler::RaiffeisenSbpHandler()
    : BasicHandler(u"raiffeisensbp"_s)
{
}

bool RaiffeisenSbpHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    const auto urls = messageValue<QStringList>(message, u"urls"_s);
    return urls.size() == addressesWithState ? undoByState(message, urls)
                                             : refundPaidOrder(message, urls);
}

QString RaiffeisenSbpHandler::memberFromReply(const RestClient &client, const QString &name)
{
    return client.responseVariant().toMap().value(name).toString();
}

QString RaiffeisenSbpHandler::statusValueFromReply(const RestClient &client)
{
    const QVariantMap reply = client.responseVariant().toMap();
    return reply.value(u"status"_s).toMap().value(u"value"_s).toString();
}

RaiffeisenSbpHandler::ReplyClass RaiffeisenSbpHandler::classifyReply(const RestClient &client) const
{
    if (succeeded(client, *logger()))
        return ReplyClass::Good;
    const QString code = client.responseJson().object().value(u"code"_s).toString();
    return code == u"ORDER_NOT_FOUND" || code == u"ERROR.NOT_FOUND" ? ReplyClass::NotFound
                                                                    : ReplyClass::Failed;
}

RaiffeisenSbpHandler::Delivery RaiffeisenSbpHandler::prepare(const Message &message) const
{
    Delivery delivery;
    delivery.headers = messageHeaders(messageValue<QVariantMap>(message, u"headers"_s));
    delivery.refundBody = messageValue<QByteArray>(message, u"body"_s);
    delivery.client = createClient(*logger());
    delivery.client->setTimeout(messageValue<int>(message, u"timeout"_s));
    return delivery;
}

bool RaiffeisenSbpHandler::undoByState(const Message &message, const QStringList &urls)
{
    const Delivery delivery = prepare(message);
    logger()->info(u"Получение информации по QR-коду/заказа"_s);
    delivery.client->get(QUrl(urls[0]), {}, delivery.headers);
    switch (classifyReply(*delivery.client)) {
    case ReplyClass::Good:
        break;
    case ReplyClass::NotFound:
        // An unknown order needs no cancellation. Only this first answer may say so.
        return doneBefore(u"заказ или QR-код сервису неизвестен, отменять нечего"_s);
    case ReplyClass::Failed:
        return false;
    }

    const QString state = codeState(*delivery.client);
    if (state == u"CANCELLED")
        return doneBefore(u"QR-код или заказ уже отменён"_s);
    if (state == u"EXPIRED")
        return giveUp(u"срок действия QR-кода или заказа истёк, отмены не было"_s);
    if (state == u"NEW")
        return deleteCode(delivery, urls[0]);
    if (state == u"PAID") {
        logger()->info(u"Оформление возврата по платежу"_s);
        // The reply to the refund request is ignored, even if it says that the refund is done.
        return requestRefund(delivery, urls[1]) && judgeRefund(delivery, urls[2]);
    }
    return keep(u"неизвестное состояние QR-кода или заказа: %1"_s.arg(shownWord(state)));
}

bool RaiffeisenSbpHandler::refundPaidOrder(const Message &message, const QStringList &urls)
{
    logger()->info(u"Оформление возврата по платежу"_s);
    const Delivery delivery = prepare(message);
    logger()->info(u"Оформление возврата по платежу"_s);
    // The number of addresses is not checked. A till that sends too few has a fault that no retry
    // corrects, but its message must neither end the service nor be lost. value() gives an empty
    // address, whose request fails, and the log has the reason.
    if (!requestRefund(delivery, urls.value(0)))
        return false;
    if (memberFromReply(*delivery.client, u"refundStatus"_s) == completedRefund)
        return true;
    return judgeRefund(delivery, urls.value(1));
}

bool RaiffeisenSbpHandler::deleteCode(const Delivery &delivery, const QString &url)
{
    RestClient &client = *delivery.client;
    logger()->info(u"Отмена невостребованного QR-кода/заказа"_s);
    client.send(deleteRequest(url, delivery.headers));
    if (!isGood(client))
        return false;
    client.get(QUrl(url), {}, delivery.headers);
    if (!isGood(client))
        return false;
    // The code may have been paid at the last moment, so only the CANCELLED state proves its
    // deletion. Unlike codeState() this checks both members.
    if (memberFromReply(client, u"qrStatus"_s) == u"CANCELLED")
        return true;
    if (statusValueFromReply(client) == u"CANCELLED")
        return true;
    return keep(u"QR-код или заказ не отменён, состояние: %1"_s.arg(shownWord(codeState(client))));
}

bool RaiffeisenSbpHandler::requestRefund(const Delivery &delivery, const QString &url)
{
    delivery.client->post(QUrl(url), delivery.refundBody, delivery.headers);
    return isGood(*delivery.client);
}

bool RaiffeisenSbpHandler::judgeRefund(const Delivery &delivery, const QString &url)
{
    logger()->info(u"Получение информации по возврату"_s);
    delivery.client->get(QUrl(url), {}, delivery.headers);
    if (!isGood(*delivery.client))
        return false;
    const QString state = memberFromReply(*delivery.client, u"refundStatus"_s);
    if (state == completedRefund)
        return true;
    // Only a refund in progress is waited for. Every other state is final, even one that reports a
    // failure.
    if (state == u"IN_PROGRESS")
        return keep(u"возврат ещё выполняется"_s);
    return giveUp(u"возврат не подтверждён, его состояние: %1"_s.arg(shownWord(state)));
}

bool RaiffeisenSbpHandler::isGood(const RestClient &client) const
{
    return classifyReply(client) == ReplyClass::Good;
}

QString RaiffeisenSbpHandler::codeState(const RestClient &client)
{
    // QR codes and orders have their state in different members.
    const QString state = memberFromReply(client, u"qrStatus"_s);
    return state.isEmpty() ? statusValueFromReply(client) : state;
}
