#include "handlers/retail/partialreservationhandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "handlers/retail/ordering.h"

#include <log4qt/logger.h>

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

QStringList markersOf(const Message &message)
{
    const auto text = messageValue<QByteArray>(message, u"body"_s);
    const QJsonDocument body = QJsonDocument::fromJson(text);
    if (!body.isObject())
        return {};
    return {body.object().toVariantMap().value(u"markId"_s).toString()};
}

constexpr Ordering ordering{
    .markersOf = markersOf,
    .onHit = BasicHandler::Turn::EndOfPass,
};

constexpr RequestRules rules{
    .headers = Headers::JsonContentType,
    .timeout = Timeout::fromMessage(10),
};

} // namespace

PartialReservationHandler::PartialReservationHandler()
    : BasicHandler(u"partialreservation"_s, inOrder(ordering))
{
}

bool PartialReservationHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    return deliverRequest(*logger(), readRequest(message, rules));
}
