#include "handlers/forwarding/winelabcertificatehandler.h"

#include "handlers/common/delivery.h"
#include "shared/document/xmlutils.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

WinelabCertificateHandler::WinelabCertificateHandler()
    : BasicHandler(u"winelabcertificate"_s)
{
}

bool WinelabCertificateHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const auto client = sendRequest(*logger(), readRequest(message, {.headers = Headers::Empty}));
    if (!succeeded(*client, *logger()))
        return false;
    const QDomDocument reply = xmlutils::parseXml(client->responseBody(), {u"status"_s});
    if (xmlutils::getValueByTag(reply, u"status"_s, 0).toLower() == u"create")
        return true;
    return keep(u"в ответе нет статуса create"_s);
}
