#include "tools/queuectl/cause.h"

#include "tools/queuectl/text.h"

using namespace Qt::StringLiterals;

namespace queuectl {

Cause causeOfKind(const QString &kind)
{
    for (const Cause cause :
         {Cause::Network, Cause::Certificate, Cause::Credentials, Cause::Request, Cause::Service}) {
        if (causeName(cause) == kind)
            return cause;
    }
    return Cause::Other;
}

QString causeName(Cause cause)
{
    switch (cause) {
    case Cause::Network:
        return u"network"_s;
    case Cause::Certificate:
        return u"certificate"_s;
    case Cause::Credentials:
        return u"credentials"_s;
    case Cause::Request:
        return u"request"_s;
    case Cause::Service:
        return u"service"_s;
    case Cause::Turn:
        return u"turn"_s;
    case Cause::Unknown:
        return u"unknown"_s;
    case Cause::NoHandler:
        return u"no-handler"_s;
    case Cause::Body:
        return u"body"_s;
    case Cause::Repeat:
        return u"repeat"_s;
    case Cause::Other:
        break;
    }
    return u"other"_s;
}

QString causeText(Cause cause)
{
    switch (cause) {
    case Cause::Network:
        return text("cannot be reached", "нет связи");
    case Cause::Certificate:
        return text("certificate", "сертификат");
    case Cause::Credentials:
        return text("account or key refused", "отказ в доступе");
    case Cause::Request:
        return text("request refused", "запрос отклонён");
    case Cause::Service:
        return text("service in trouble", "сбой внешней службы");
    case Cause::Turn:
        return text("waits for its turn", "ждёт очереди");
    case Cause::Unknown:
        return text("not known", "неизвестно");
    case Cause::NoHandler:
        return text("nobody delivers this type", "тип никто не доставляет");
    case Cause::Body:
        return text("body is not a JSON object", "тело не объект JSON");
    case Cause::Repeat:
        return text("finished, row not deleted", "обработана, строка не удалена");
    case Cause::Other:
        break;
    }
    return text("refused", "отказ");
}

Actor actorOf(Cause cause)
{
    switch (cause) {
    case Cause::Network:
        return Actor::Network;
    case Cause::Certificate:
        return Actor::Certificates;
    case Cause::Credentials:
        return Actor::Account;
    case Cause::Request:
    case Cause::NoHandler:
    case Cause::Body:
        return Actor::Integrator;
    case Cause::Service:
        return Actor::Operator;
    case Cause::Turn:
        return Actor::Nobody;
    case Cause::Unknown:
    case Cause::Repeat:
    case Cause::Other:
        break;
    }
    return Actor::Engineer;
}

QString actorName(Actor actor)
{
    switch (actor) {
    case Actor::Nobody:
        return u"nobody"_s;
    case Actor::Engineer:
        return u"engineer"_s;
    case Actor::Integrator:
        return u"integrator"_s;
    case Actor::Network:
        return u"network"_s;
    case Actor::Certificates:
        return u"certificates"_s;
    case Actor::Account:
        return u"account"_s;
    case Actor::Operator:
        break;
    }
    return u"operator"_s;
}

QString actorTitle(Actor actor)
{
    switch (actor) {
    case Actor::Nobody:
        return text("nobody", "никто");
    case Actor::Engineer:
        return text("the till's engineer", "инженер кассы");
    case Actor::Integrator:
        return text("the till's integrator", "интегратор кассы");
    case Actor::Network:
        return text("who looks after the network", "кто отвечает за сеть");
    case Actor::Certificates:
        return text("who installs certificates", "кто ставит сертификаты");
    case Actor::Account:
        return text("who manages the account", "кто ведёт учётную запись");
    case Actor::Operator:
        break;
    }
    return text("the service's operator", "владелец сервиса");
}

} // namespace queuectl
