#include "tests/handlers/support/delivery.h"

#include "engine/basichandler.h"
#include "handlers/handlertable.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <memory>

bool deliver(const QString &type, const QString &body)
{
    HandlerFactory factory(handlerTable());
    const std::unique_ptr<BasicHandler> handler(factory.create(type));
    if (!handler)
        qFatal("There is no handler for %s", qPrintable(type));
    Message message;
    message.id = 7;
    message.type = type;
    message.body = QJsonDocument::fromJson(body.toUtf8()).object().toVariantMap();
    return handler->sendMessage(message);
}
