#include "handlers/other/tsumhandler.h"

#include "shared/net/preparedrequestbase.h"
#include "shared/net/serder.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

TsumHandler::TsumHandler()
    : BasicHandler(u"tsum"_s)
{
}

bool TsumHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    auto request = serder::deserialize<tsum::PreparedRequestBase>(message.body);
    request.setLogger(logger());
    try {
        request.getResponseVariant();
    } catch (const tsum::Exception &exception) {
        logger()->error(u"Не удалось отправить сообщение: %1"_s, exception.tr().ru());
        return false;
    }
    return true;
}
