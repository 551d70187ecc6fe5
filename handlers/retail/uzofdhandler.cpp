#include "handlers/retail/uzofdhandler.h"

#include "handlers/common/messagevalue.h"
#include "handlers/common/restcalls.h"

#include <log4qt/logger.h>

#include <QUrl>

using namespace Qt::StringLiterals;

UzOfdHandler::UzOfdHandler()
    : BasicHandler(u"uzofd"_s)
{
}

bool UzOfdHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const QUrl url(messageValue<QString>(message, u"url"_s));
    const auto body = messageValue<QByteArray>(message, u"body"_s);
    const auto client = createClient(*logger());
    client->setTimeout(10);

    const auto certificate = messageValue<QString>(message, u"certificatePath"_s);
    if (!certificate.isEmpty()) {
        client->setCertificatePath(certificate);
        client->setCertificatePassword(messageValue<QString>(message, u"certificatePassword"_s));
    }
    client->post(url, body, {{u"Content-Type"_s, u"application/json; charset=UTF-8"_s}});
    if (client->errorCode() > 0) {
        logSendError(*logger(), client->errorText());
        return false;
    }
    return true;
}
