#include "handlers/payment/iturupsbphandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "handlers/common/replyword.h"

#include <log4qt/logger.h>

#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

constexpr int doneCode = 0;
constexpr int nullReplyCode = -1;
/// The refund was accepted and is in progress.
constexpr int runningCode = 2;

QString dataMember(const RestClient &client, const QString &name)
{
    const QVariantMap reply = client.responseVariant().toMap();
    return reply.value(u"data"_s).toMap().value(name).toString();
}

} // namespace

IturupSbpHandler::IturupSbpHandler()
    : BasicHandler(u"iturupsbp"_s)
{
}

bool IturupSbpHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    const auto client = createClient(*logger());
    client->setTimeout(messageValue<int>(message, u"timeout"_s));

    if (!performStep(messageValue<QVariantMap>(message, u"qrOperationStatus"_s), *client))
        return false;
    const QString status = dataMember(*client, u"status"_s);
    if (status == u"ACCEPTED")
        return refund(message, *client);
    if (status == u"REJECTED")
        return giveUp(u"операция отклонена"_s);
    if (status == u"NOT_STARTED")
        return doneBefore(u"операция не начата, возвращать нечего"_s);
    // RECEIVED and IN_PROGRESS may still change to one of these; an unknown status is not final.
    return keep(u"состояние операции: %1"_s.arg(shownWord(status)));
}

bool IturupSbpHandler::sendDescription(const QVariantMap &description, RestClient &client)
{
    client.post(QUrl(description.value(u"url"_s).toString()),
                description.value(u"data"_s).toByteArray(),
                messageHeaders(description.value(u"headers"_s).toMap()));
    if (succeeded(client))
        return true;
    // In the operator's language, whereas other types log the Russian text.
    logger()->error(u"Ошибка при отправке сообщения: %1"_s, client.errorText().ui());
    return false;
}

int IturupSbpHandler::responseCodeFromReply(const QVariant &reply)
{
    return reply.isNull() ? nullReplyCode : reply.toMap().value(u"responseCode"_s).toInt();
}

QVariantMap IturupSbpHandler::fillDescription(const QString &key, const QString &value,
                                              const QString &name, const Message &message) const
{
    auto description = messageValue<QVariantMap>(message, name);
    QJsonObject data = QJsonDocument::fromJson(description.value(u"data"_s).toByteArray()).object();
    data.insert(key, value);
    description.insert(u"data"_s,
                       QString::fromUtf8(QJsonDocument(data).toJson(QJsonDocument::Compact)));
    return description;
}

bool IturupSbpHandler::performStep(const QVariantMap &description, RestClient &client)
{
    if (!sendDescription(description, client))
        return false;
    const int code = responseCodeFromReply(client.responseVariant());
    if (code == doneCode)
        return true;
    return keep(code == nullReplyCode ? u"ответ не прочитан"_s : u"код ответа %1"_s.arg(code));
}

bool IturupSbpHandler::refund(const Message &message, RestClient &client)
{
    const QString paymentId = dataMember(client, u"operId"_s);
    if (!performStep(fillDescription(u"refId"_s, paymentId, u"refundPrepare"_s, message), client))
        return false;
    // The refund is a separate operation; from here on its identifier is used.
    const QString refundId = dataMember(client, u"operId"_s);
    if (!sendDescription(fillDescription(u"operId"_s, refundId, u"refundCommit"_s, message),
                         client))
        return false;
    const int code = responseCodeFromReply(client.responseVariant());
    return code == runningCode ? awaitRefund(message, refundId, client) : endRefund(code);
}

bool IturupSbpHandler::awaitRefund(const Message &message, const QString &operationId,
                                   RestClient &client)
{
    const QVariantMap status =
        fillDescription(u"operId"_s, operationId, u"refundStatus"_s, message);
    // Without a pause or a limit: the partner ends the refund. A failed request leaves the rest to
    // the next attempt.
    int code = runningCode;
    while (code == runningCode) {
        if (!sendDescription(status, client))
            return false;
        code = responseCodeFromReply(client.responseVariant());
    }
    return endRefund(code);
}

bool IturupSbpHandler::endRefund(int code)
{
    // Any answer is final, even an error or an unreadable one: the commit was answered, and a
    // second refund of the same payment is worse than one to check by hand.
    if (code == doneCode)
        return true;
    return giveUp(code == nullReplyCode ? u"ответ на возврат не прочитан"_s
                                        : u"возврат завершён с кодом %1"_s.arg(code));
}
