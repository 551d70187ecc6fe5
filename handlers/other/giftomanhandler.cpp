#include "handlers/other/giftomanhandler.h"

#include "handlers/common/delivery.h"

#include <log4qt/logger.h>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr int attemptLimit = 3;

/// An internal error of the service, which may be temporary. The code occurs with either sign.
bool isInternalError(const QVariantMap &reply)
{
    constexpr qint64 internalErrors[] = {32605, 32606, 32610};
    if (!reply.contains(u"error"_s))
        return false;
    const qint64 code = reply.value(u"error"_s).toMap().value(u"code"_s).toInt();
    return std::ranges::find(internalErrors, qAbs(code)) != std::end(internalErrors);
}

} // namespace

GiftomanHandler::GiftomanHandler()
    : BasicHandler(u"giftoman"_s)
{
}

bool GiftomanHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const PreparedRequest request = readRequest(message);
    const auto client = createClient(*logger(), request);
    for (int attempt = 1;; ++attempt) {
        sendRequest(*client, request);
        if (!succeeded(*client, *logger()))
            return false;
        const QVariantMap reply = client->responseVariant().toMap();
        if (isInternalError(reply)) {
            logger()->error(u"Внутрення ошибка сервера"_s);
            return keep(u"внутренняя ошибка сервиса"_s);
        }
        // The id of the last reply is not checked: there are no attempts left.
        if (attempt == attemptLimit) {
            logger()->error(u"Ошибочный ответ от сервера"_s);
            return giveUp(u"исчерпаны попытки, третий ответ не рассматривается"_s);
        }
        if (reply.value(u"result"_s).toMap().value(u"id"_s).toString() == u"0")
            continue;
        if (reply.contains(u"error"_s))
            return giveUp(u"сервис ответил ошибкой"_s);
        return true;
    }
}
