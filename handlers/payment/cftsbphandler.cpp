#include "handlers/payment/cftsbphandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "handlers/common/replyword.h"
#include "shared/core/mockfactory.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int preconditionRequiredStatus = 428;
/// With the status above: a final error.
constexpr int finalErrorCode = 202;

} // namespace

CftSbpHandler::CftSbpHandler()
    : BasicHandler(u"cftsbp"_s)
{
}

bool CftSbpHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    // Without a logger, so that the exchange with the bank is never logged.
    const auto client = MockFactory<RestClient>::create();
    const PreparedRequest request = readRequest(message, {.payload = Payload::Map});
    applyTimeout(*client, request);
    client->setCertificatePath(messageValue<QString>(message, u"tlsPath"_s));
    client->setCertificatePassword(messageValue<QString>(message, u"tlsPass"_s));
    sendRequest(*client, request);

    const QVariantMap reply = client->responseVariant().toMap();
    return succeeded(*client) ? judgeReply(reply) : judgeFailure(*client, reply);
}

bool CftSbpHandler::judgeFailure(const RestClient &client, const QVariantMap &reply)
{
    logger()->error(reply.value(u"message"_s, client.errorText().ru()).toString());
    // Compared as QVariant: a number of any type equals its text.
    if (client.statusCode() != preconditionRequiredStatus
        || reply.value(u"code"_s, 0) != QVariant(finalErrorCode))
        return false;
    return giveUp(u"банк отказал окончательно, код %1"_s.arg(finalErrorCode));
}

bool CftSbpHandler::judgeReply(const QVariantMap &reply)
{
    if (reply.contains(u"message"_s) && reply.contains(u"code"_s)) {
        logger()->error(reply.value(u"message"_s).toString());
        return keep(u"банк отказал, код: %1"_s.arg(shownWord(reply.value(u"code"_s).toString())));
    }
    const qint64 status = reply.value(u"status"_s).toLongLong();
    if (status < 0) {
        logger()->error(reply.value(u"message"_s, reply.value(u"infoMsg"_s)).toString());
        return keep(u"банк отказал, статус %1"_s.arg(status));
    }
    return true;
}
