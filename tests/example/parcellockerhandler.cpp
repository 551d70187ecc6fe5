#include "tests/example/parcellockerhandler.h"

#include "handlers/common/messagevalue.h"
#include "handlers/common/restcalls.h"

#include <log4qt/logger.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

using namespace Qt::StringLiterals;

ParcelLockerHandler::ParcelLockerHandler()
    : BasicHandler(u"parcellocker"_s)
{
}

bool ParcelLockerHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const QUrl url(messageValue<QString>(message, u"url"_s), QUrl::TolerantMode);
    const QJsonObject request{{u"cell"_s, messageValue<QString>(message, u"cell"_s)}};

    const auto client = createClient(*logger());
    client->setTimeout(messageValue<int>(message, u"timeout"_s, 10));
    client->post(url, QJsonDocument(request), {});
    if (client->errorCode() > 0) {
        logSendError(*logger(), client->errorText());
        return false;
    }

    const QJsonObject reply = client->responseJson().object();
    if (reply.value(u"opened"_s).toBool())
        return true;
    logger()->warn(u"Ячейка не открыта"_s);
    return !reply.value(u"retry"_s).toBool(true);
}
