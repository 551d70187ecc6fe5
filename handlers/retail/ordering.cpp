#include "handlers/retail/ordering.h"

#include "handlers/common/messagevalue.h"

#include <log4qt/logger.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

BasicHandler::TurnRule inOrder(const Ordering &ordering)
{
    return [ordering](const Message &message, queue::DAO &dao, Log4Qt::Logger &logger) {
        return turnOf(message, dao, logger, ordering);
    };
}

BasicHandler::Turn turnOf(const Message &message, queue::DAO &dao, Log4Qt::Logger &logger,
                          const Ordering &ordering)
{
    const QJsonDocument body(QJsonObject::fromVariantMap(message.body));
    logger.info(u"Обработка сообщения:\n%1"_s,
                QString::fromUtf8(body.toJson(QJsonDocument::Indented)));
    const QStringList markers = ordering.markersOf(message);
    const bool hasToWait = std::ranges::any_of(markers, [&](const QString &marker) {
        return dao.hasEarlierMessage(message.type, message.id, marker);
    });
    return hasToWait ? ordering.onHit : BasicHandler::Turn::Now;
}

QStringList markersInList(const Message &message, const QString &key)
{
    const auto text = messageValue<QByteArray>(message, u"body"_s);
    const QVariantList elements = QJsonDocument::fromJson(text).array().toVariantList();
    QStringList markers;
    for (const QVariant &element : elements)
        markers.append(element.toMap().value(key).toString());
    return markers;
}
