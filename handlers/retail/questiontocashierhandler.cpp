#include "handlers/retail/questiontocashierhandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

QuestionToCashierHandler::QuestionToCashierHandler()
    : BasicHandler(u"questiontocashier"_s)
{
}

bool QuestionToCashierHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    PreparedRequest request = readRequest(message, {.headers = Headers::JsonContentType});
    if (message.body.contains(u"user"_s) && message.body.contains(u"password"_s)) {
        const auto user = messageValue<QString>(message, u"user"_s);
        // The service expects only the name here, without colon and password.
        request.headers.insert(u"Authorization"_s, u"Basic %1"_s.arg(QString::fromLatin1(
                                                       user.toLocal8Bit().toBase64())));
        setCredentials(request.url, user, messageValue<QString>(message, u"password"_s));
    }
    return deliverRequest(*logger(), request);
}
