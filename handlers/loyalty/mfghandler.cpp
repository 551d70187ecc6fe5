#include "handlers/loyalty/mfghandler.h"

#include "handlers/loyalty/mfg/interface.h"
#include "shared/core/basicexception.h"

#include <log4qt/logger.h>

#include <QJsonObject>

using namespace Qt::StringLiterals;

MfgHandler::MfgHandler()
    : BasicHandler(u"mfg"_s)
{
}

bool MfgHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    // A new object for each message, so that changed settings apply.
    mfg::Interface interface;
    try {
        interface.sendFromQueue(QJsonObject::fromVariantMap(message.body));
    } catch (const BasicException &error) {
        logger()->error(error.tr().ru());
        // For a failed exchange the client has the reason.
        return interface.refusal() ? keep(*interface.refusal()) : false;
    }
    return interface.refusal() ? giveUp(*interface.refusal()) : true;
}
