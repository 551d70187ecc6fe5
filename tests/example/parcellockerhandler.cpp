#include "tests/example/parcellockerhandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"

#include <log4qt/logger.h>

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

ParcelLockerHandler::ParcelLockerHandler()
    : BasicHandler(u"parcellocker"_s)
{
}

bool ParcelLockerHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const QJsonObject opening{{u"cell"_s, messageValue<QString>(message, u"cell"_s)}};
    const PreparedRequest request{
        .url = messageAddress(message, u"url"_s),
        .body = QJsonDocument(opening),
        .timeoutSeconds = messageValue<int>(message, u"timeout"_s, 10),
    };
    const auto client = sendRequest(*logger(), request);
    if (!succeeded(*client, *logger()))
        return false;

    const QJsonObject reply = client->responseJson().object();
    if (reply.value(u"opened"_s).toBool())
        return true;
    logger()->warn(u"Ячейка не открыта"_s);
    return reply.value(u"retry"_s).toBool(true) ? keep(u"ячейка не открыта"_s)
                                                : giveUp(u"ячейка пуста"_s);
}
