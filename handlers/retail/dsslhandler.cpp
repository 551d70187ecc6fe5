#include "handlers/retail/dsslhandler.h"

#include "handlers/common/messagevalue.h"
#include "handlers/retail/ordering.h"
#include "shared/core/mockfactory.h"
#include "shared/net/tcpclient.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

QStringList markersOf(const Message &message)
{
    return {messageValue<QString>(message, u"url"_s)};
}

constexpr Ordering ordering{
    .markersOf = markersOf,
    .onHit = BasicHandler::Turn::Later,
};

} // namespace

DsslHandler::DsslHandler()
    : BasicHandler(u"dssl"_s, inOrder(ordering))
{
}

bool DsslHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const auto client = MockFactory<TcpClient>::create();
    client->setHost(messageValue<QString>(message, u"url"_s));
    client->setPort(messageValue<int>(message, u"port"_s));
    client->setTimeout(messageValue<int>(message, u"timeout"_s));
    if (!client->connectToServer()) {
        logger()->info(u"Не удалось установить соединение с сервером"_s);
        return false;
    }
    client->write(messageValue<QByteArray>(message, u"body"_s));
    client->disconnectFromServer();
    return true;
}
