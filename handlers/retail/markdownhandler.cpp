#include "handlers/retail/markdownhandler.h"

#include "handlers/common/delivery.h"
#include "handlers/retail/ordering.h"

#include <log4qt/logger.h>

#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

QStringList markersOf(const Message &message)
{
    return markersInList(message, u"rawdata"_s);
}

constexpr Ordering ordering{
    .markersOf = markersOf,
    .onHit = BasicHandler::Turn::EndOfPass,
};

constexpr RequestRules rules{
    .verb = Verb::Put,
    .headers = Headers::JsonContentType,
    .timeout = Timeout::fromMessage(10),
};

/// Finishes the message although it is a failure.
constexpr int allowedError = -2;

} // namespace

MarkdownHandler::MarkdownHandler()
    : BasicHandler(u"markdown"_s, inOrder(ordering))
{
}

bool MarkdownHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const auto client = sendRequest(*logger(), readRequest(message, rules));
    if (succeeded(*client, *logger()))
        return true;
    if (!client->hasResponse())
        return false;
    const QJsonObject reply = client->responseJson().object();
    if (reply.value(u"errorCode"_s).toInt() != allowedError)
        return false;
    logger()->warn(u"Метод выполнен с допустимой ошибкой, сообщение будет удалено из очереди"_s);
    return giveUp(u"допустимая ошибка, код %1"_s.arg(allowedError));
}
