#include "handlers/loyalty/manzanahandler.h"

#include "handlers/common/delivery.h"
#include "shared/document/xmlutils.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int success = 0;
/// Not documented by the service, but the work is done.
constexpr int alsoSuccess = 81301;
/// Final only for a card that may no longer be used.
constexpr int operationForbidden = 80420;

} // namespace

ManzanaHandler::ManzanaHandler(const QString &type)
    : BasicHandler(type)
{
}

bool ManzanaHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const auto client =
        sendRequest(*logger(), readRequest(message, {.timeout = Timeout::fixed(15)}));
    return succeeded(*client, *logger()) && parseReply(client->responseBody());
}

bool ManzanaHandler::parseReply(const QByteArray &reply)
{
    const QDomDocument document = xmlutils::parseXml(reply, {u"ReturnCode"_s, u"Message"_s});
    const QDomElement element = xmlutils::firstElement(document, u"ReturnCode"_s);
    if (element.isNull()) {
        logger()->warn(u"Некорректный ответ от сервера, отсутствует поле ReturnCode"_s);
        return keep(u"в ответе нет поля ReturnCode"_s);
    }
    const int code = element.text().toInt(); // not a number: 0, which is success
    if (code == success || code == alsoSuccess)
        return true;

    const QString text = xmlutils::getValueByTag(document, u"Message"_s, 0);
    if (code == operationForbidden && text == u"Операция запрещена по статусу карты") {
        logger()->warn(u"Сообщение об ошибке: %1, сообщение будет удалено"_s, text);
        return giveUp(refusalText(text));
    }
    logger()->warn(u"Код ошибки: %1"_s, code);
    if (!text.isEmpty())
        logger()->warn(u"Сообщение об ошибке: %1"_s, text);
    return keep(u"код ошибки %1"_s.arg(code));
}
