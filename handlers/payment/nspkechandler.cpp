#include "handlers/payment/nspkechandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "handlers/common/replyword.h"
#include "shared/core/guarded.h"

#include <log4qt/logger.h>

#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

/// Failed attempts by message id. They outlive the worker.
Guarded<QHash<int, int>> &tries()
{
    // Never destroyed: a worker may outlive main().
    static auto &table = *new Guarded<QHash<int, int>>;
    return table;
}

QString failureText(const QJsonObject &result)
{
    const QJsonValue description = result.value(u"description"_s);
    if (description.isString())
        return description.toString();
    return tr::Tr(u"nspkEcUnknownError"_s, u"Неизвестная ошибка"_s).ui();
}

} // namespace

NspkEcHandler::NspkEcHandler()
    : BasicHandler(u"nspkec"_s)
{
}

bool NspkEcHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const auto client = sendRequest(*logger(), readRequest(message, {.payload = Payload::Object}));

    const QJsonObject result = client->response().responseObject().value(u"result"_s).toObject();
    // The count is not reset after a success: the row is deleted, and its id is never reused.
    if (succeeded(*client) && result.value(u"code"_s).toString() == u"0")
        return true;
    logger()->error(u"Ошибка при отправке сообщения: %1"_s, failureText(result));
    if (!keepsTrying(message))
        return giveUp(u"исчерпаны попытки отправки"_s);
    // For a failed exchange the client has the reason.
    if (!succeeded(*client))
        return false;
    return keep(u"сервис отказал, код: %1"_s.arg(shownWord(result.value(u"code"_s).toString())));
}

/// Counts a failed attempt. False if it was the last one.
bool NspkEcHandler::keepsTrying(const Message &message)
{
    const auto table = tries().lock();
    const int failed = ++(*table)[message.id];
    if (failed < messageValue<int>(message, u"numberOfTries"_s))
        return true;
    logger()->warn(
        u"Количество попыток повторной отправки достигло максимального значения. Сообщение удалено"_s);
    table->remove(message.id);
    return false;
}
