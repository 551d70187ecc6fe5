#include "handlers/retail/questiontocashierhandler.h"

#include "handlers/common/messagevalue.h"
#include "handlers/common/restcalls.h"

#include <log4qt/logger.h>

#include <QUrl>

using namespace Qt::StringLiterals;

QuestionToCashierHandler::QuestionToCashierHandler()
    : BasicHandler(u"questiontocashier"_s)
{
}

bool QuestionToCashierHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    QHash<QString, QString> headers{{u"Content-Type"_s, u"application/json; charset=UTF-8"_s}};
    QUrl url(messageValue<QString>(message, u"url"_s));
    if (message.body.contains(u"user"_s) && message.body.contains(u"password"_s)) {
        const auto user = messageValue<QString>(message, u"user"_s);
        // The service wants the name alone here, without the colon and the password behind it.
        headers.insert(u"Authorization"_s,
                       u"Basic %1"_s.arg(QString::fromLatin1(user.toLocal8Bit().toBase64())));
        // Whatever is set in an address that cannot be read makes a readable one of what is left of it, which
        // may be another server's.
        if (url.isValid()) {
            url.setUserName(user, QUrl::DecodedMode);
            url.setPassword(messageValue<QString>(message, u"password"_s), QUrl::DecodedMode);
        }
    }
    const auto client = createClient(*logger());
    client->setTimeout(messageValue<int>(message, u"timeout"_s));
    client->post(url, messageValue<QByteArray>(message, u"body"_s), headers);
    if (client->errorCode() > 0) {
        logSendError(*logger(), client->errorText());
        return false;
    }
    return true;
}
