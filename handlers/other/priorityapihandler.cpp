#include "handlers/other/priorityapihandler.h"

#include "handlers/common/delivery.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

PriorityApiHandler::PriorityApiHandler()
    : BasicHandler(u"priorityapi"_s)
{
}

bool PriorityApiHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const bool isText = message.body.value(u"body"_s).metaType() == QMetaType::fromType<QString>();
    const RequestRules rules{
        .payload = isText ? Payload::Bytes : Payload::Object,
        .timeout = Timeout::fixed(10),
    };
    const auto client = sendRequest(*logger(), readRequest(message, rules));
    if (!succeeded(*client, *logger()))
        return false;
    const QVariantMap reply = client->responseVariant().toMap();
    if (!reply.contains(u"code"_s)) {
        logger()->warn(u"Некорректный ответ от сервера, отсутствует обязательное поле 'code'"_s);
        return keep(u"в ответе нет поля code"_s);
    }
    const int code = reply.value(u"code"_s).toInt();
    if (code == 0)
        return true;
    return keep(u"код ошибки %1"_s.arg(code));
}
