#include "tests/handlers/support/delivery.h"

#include "engine/basichandler.h"
#include "handlers/handlertable.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

std::unique_ptr<BasicHandler> handlerOf(const QString &type)
{
    HandlerFactory factory(handlerTable());
    std::unique_ptr<BasicHandler> handler(factory.create(type));
    if (!handler)
        qFatal("There is no handler for %s", qPrintable(type));
    return handler;
}

Message messageOf(const QString &type, const QString &body)
{
    Message message;
    message.id = 7;
    message.type = type;
    message.body = QJsonDocument::fromJson(body.toUtf8()).object().toVariantMap();
    return message;
}

} // namespace

bool deliver(const QString &type, const QString &body)
{
    return handlerOf(type)->sendMessage(messageOf(type, body));
}

QString keptBy(const http::Response &answer)
{
    return u"kept %1: %2"_s.arg(nameOf(answer.kind()), answer.errorText.ru());
}

QString told(const Outcome &outcome)
{
    QString text = nameOf(outcome.verdict);
    if (outcome.verdict == Verdict::Kept)
        text += u' ' + nameOf(outcome.kind);
    if (!outcome.text.isEmpty())
        text += u": "_s + outcome.text;
    return text;
}

QString outcomeOf(const QString &type, const QString &body)
{
    return told(handlerOf(type)->attempt(messageOf(type, body)));
}
