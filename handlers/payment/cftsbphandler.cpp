#include "handlers/payment/cftsbphandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "shared/core/mockfactory.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int preconditionRequiredStatus = 428;
/// With the status above: an error that ends the matter for good.
constexpr int finalErrorCode = 202;

bool judgeFailure(const RestClient &client, const QVariantMap &reply, Log4Qt::Logger &logger)
{
    logger.error(reply.value(u"message"_s, client.errorText().ru()).toString());
    // Compared as values: the number of any kind and its text are equal.
    return client.statusCode() == preconditionRequiredStatus
           && reply.value(u"code"_s, 0) == QVariant(finalErrorCode);
}

bool judgeReply(const QVariantMap &reply, Log4Qt::Logger &logger)
{
    if (reply.contains(u"message"_s) && reply.contains(u"code"_s)) {
        logger.error(reply.value(u"message"_s).toString());
        return false;
    }
    if (reply.value(u"status"_s).toLongLong() < 0) {
        logger.error(reply.value(u"message"_s, reply.value(u"infoMsg"_s)).toString());
        return false;
    }
    return true;
}

} // namespace

CftSbpHandler::CftSbpHandler()
    : BasicHandler(u"cftsbp"_s)
{
}

bool CftSbpHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    // The client gets no logger, so the exchange with the bank is logged at no level.
    const auto client = MockFactory<RestClient>::create();
    const PreparedRequest request = readRequest(message, {.payload = Payload::Map});
    applyTimeout(*client, request);
    client->setCertificatePath(messageValue<QString>(message, u"tlsPath"_s));
    client->setCertificatePassword(messageValue<QString>(message, u"tlsPass"_s));
    sendRequest(*client, request);

    const QVariantMap reply = client->responseVariant().toMap();
    return succeeded(*client) ? judgeReply(reply, *logger())
                              : judgeFailure(*client, reply, *logger());
}
