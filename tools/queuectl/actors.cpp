#include "tools/queuectl/actors.h"

#include "tools/queuectl/text.h"

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

/// Whether the cause is in the row itself, so that starting the service would not help.
bool isOfTheRow(Cause cause)
{
    return cause == Cause::NoHandler || cause == Cause::Body;
}

QString actionAtThePort(PortState service)
{
    if (service == PortState::Nobody)
        return text("you must start the service (systemctl start queue)",
                    "запустите службу (systemctl start queue)");
    return text(
               "you must find out which program has the port (ss -ltnp 'sport = %1'), then free it or restart the service (systemctl restart queue)",
               "выясните, кто занял порт (ss -ltnp 'sport = %1'), освободите его или перезапустите службу (systemctl restart queue)")
        .arg(controlPort());
}

} // namespace

Actor actorFor(Cause cause, PortState service)
{
    return isOfTheRow(cause) || service == PortState::Service ? actorOf(cause) : Actor::Engineer;
}

QString actionText(Cause cause, PortState service, const QString &type, const QString &address,
                   int id)
{
    const QString destination =
        address.isEmpty() ? text("the service of type %1", "сервиса типа %1").arg(type) : address;
    if (cause == Cause::NoHandler)
        return text(
                   "the till's integrator must correct the type (queuectl drop %1 deletes the row)",
                   "тип должен исправить интегратор кассы (queuectl drop %1 удалит строку)")
            .arg(id);
    if (cause == Cause::Body)
        return text("the till's integrator must correct the program that writes these rows",
                    "программу, которая пишет такие строки, должен исправить интегратор кассы");
    if (service != PortState::Service)
        return actionAtThePort(service);
    switch (cause) {
    case Cause::Network:
        return text("the network engineer or the operator of %1 must make it reachable from here",
                    "связь с %1 должен восстановить тот, кто отвечает за сеть или за этот сервис")
            .arg(destination);
    case Cause::Certificate:
        return text(
                   "the person who installs certificates must check those for %1 (queuectl doctor lists them)",
                   "сертификаты для %1 должен проверить тот, кто их ставит (их покажет queuectl doctor)")
            .arg(destination);
    case Cause::Credentials:
        return text(
                   "the person who manages the account at %1 must correct name, password or key",
                   "имя, пароль или ключ для %1 должен исправить тот, кто ведёт эту учётную запись")
            .arg(destination);
    case Cause::Service:
        return text("the operator of %1 must correct it; there is nothing to do here",
                    "сбой должен устранить владелец %1; здесь делать нечего")
            .arg(destination);
    case Cause::Request:
        return text(
                   "the till's integrator and the operator of %1 must find out what is wrong with the request (queuectl show %2)",
                   "интегратор кассы и владелец %1 должны выяснить, что не так в запросе (queuectl show %2)")
            .arg(destination, QString::number(id));
    case Cause::Turn:
        return text("nobody has to act", "делать ничего не надо");
    case Cause::Unknown:
        return text("read the service's log before you decide who must act",
                    "прежде чем решать, кому действовать, посмотрите журнал службы");
    case Cause::Repeat:
        return text(
                   "check whether the database accepts deletions and whether it was restored from a backup (queuectl doctor); if the message must not be sent twice: queuectl drop %1",
                   "проверьте, удаляются ли строки из базы и не восстановлена ли она из копии (queuectl doctor); если повтор недопустим: queuectl drop %1")
            .arg(id);
    default:
        return text("the engineer must read the log around that time, then ask the operator of %1",
                    "инженеру надо прочесть журнал за это время и обратиться к владельцу %1")
            .arg(destination);
    }
}

} // namespace queuectl
