#include "app/settings.h"
#include "tools/catalogue/catalogue.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/controlport.h"
#include "tools/queuectl/masking.h"
#include "tools/queuectl/rowcheck.h"
#include "tools/queuectl/situation.h"
#include "tools/queuectl/text.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

/// The last answer as a part of the sentence.
QString answerText(const Row &row, Cause cause, const Situation &situation)
{
    const auto failure = situation.lastFailure(row);
    if (failure)
        return text("the last answer, at %1, was \"%2\"", "последний ответ в %1: «%2»")
            .arg(timeText(failure->time), maskedText(failure->text).simplified());
    if (situation.lastAttempt(row))
        return text("it was tried at %1 and stayed, and its handler logged no reason",
                    "попытка в %1 не удалась, причину обработчик в журнал не записал")
            .arg(timeText(situation.lastAttempt(row)->time));
    if (situation.wasRefused(row))
        return situation.log.hasFile()
                   ? text("it has been tried and refused, and the log no longer tells how",
                          "попытка не удалась, в журнале её уже нет")
                   : text(
                       "it has been tried and refused, and there is no log file to tell how (journalctl -u queue)",
                       "попытка не удалась, а файл журнала не ведётся (journalctl -u queue)");
    if (cause == Cause::Turn)
        return text("it has not been tried yet", "попыток ещё не было");
    const QString unknown =
        text("whether it has been tried is not known here: %1 (journalctl -u queue)",
             "были ли попытки, здесь неизвестно: %1 (journalctl -u queue)");
    switch (situation.log.state()) {
    case ServiceLog::State::None:
        return unknown.arg(text("no log file is kept", "файл журнала не ведётся"));
    case ServiceLog::State::Missing:
        return unknown.arg(text("there is no log file", "файла журнала нет"));
    case ServiceLog::State::Denied:
        return unknown.arg(
            text("this account may not read the log", "эта учётная запись не может читать журнал"));
    case ServiceLog::State::Read:
        break;
    }
    return unknown.arg(text("the log file does not tell of that time",
                            "в файле журнала нет записей за это время"));
}

/// Words by which the rules about such an answer are told in the catalogue.
QStringList signsOf(Cause cause)
{
    switch (cause) {
    case Cause::Network:
        return {u"no answer"_s, u"no connection"_s, u"network"_s};
    case Cause::Certificate:
        return {u"certificate"_s, u"no answer"_s};
    case Cause::Credentials:
    case Cause::Request:
    case Cause::Service:
        return {u"http error"_s, u"status"_s};
    default:
        return {};
    }
}

/// Why the handler of the type keeps a row after such an answer.
QString keepingRule(const QString &type, Cause cause)
{
    const catalogue::Type *known = catalogue::find(type);
    const QList<catalogue::Outcome> outcomes =
        known ? known->outcomes : QList<catalogue::Outcome>();
    const QStringList signs = signsOf(cause);
    for (const QString &sign : signs) {
        for (const catalogue::Outcome &outcome : outcomes) {
            if (outcome.result != u"kept" || !outcome.when.contains(sign, Qt::CaseInsensitive))
                continue;
            QString rule = isRussian() ? outcome.whenRu : outcome.when;
            while (rule.endsWith(u'.'))
                rule.chop(1);
            return text("a message of type %1 stays after this (rule: %2)",
                        "сообщение типа %1 после этого остаётся (правило: %2)")
                .arg(type, rule);
        }
    }
    return text("a message of type %1 stays after this (%2; all rules: queuectl types %1)",
                "сообщение типа %1 после этого остаётся (%2; все правила: queuectl types %1)")
        .arg(type, causeText(cause));
}

/// What the engine does with a row that is not finished with.
QString ruleText(const Row &row, Cause cause)
{
    switch (cause) {
    case Cause::NoHandler:
        return text("no handler takes type %1, so the service passes it by",
                    "обработчика типа %1 нет, и служба проходит мимо")
            .arg(row.type);
    case Cause::Body:
        return text("its body is no JSON object, so its handler gets an empty one",
                    "тело не объект JSON, обработчик получает пустое");
    case Cause::Turn:
    case Cause::Unknown:
        return text("rows of a type go one after another, oldest first",
                    "строки одного типа идут по одной, начиная со старшей");
    default:
        return keepingRule(row.type, cause);
    }
}

struct NextTry
{
    QString text;
    /// At the earliest; invalid when nobody can tell.
    QDateTime earliest;
};

NextTry nextTry(const Row &row, Cause cause, const Situation &situation, MessageRows &rows,
                PortState service)
{
    if (cause == Cause::NoHandler)
        return {text("it is never tried", "доставлять её никто не будет"), {}};
    if (service == PortState::Nobody)
        return {text("it is not tried before the service runs again",
                     "до запуска службы попыток не будет"),
                {}};
    if (service == PortState::Other)
        return {
            text(
                "nobody can tell when it is tried next, since what listens on 127.0.0.1:%1 does not answer as the service does",
                "когда она пойдёт, сказать нельзя: на 127.0.0.1:%1 отвечает не служба, или служба зависла")
                .arg(controlPort()),
            {}};
    const auto period = settings::queue::timeout.value().count();
    const auto failId = situation.failIds.of(row.type);
    const auto in = [&](int polls) {
        return QDateTime::currentDateTime().addSecs(qint64(polls) * period);
    };
    if (!failId || row.id > *failId) {
        const int before =
            failId ? rows.countBehind(row.type, *failId) - rows.countBehind(row.type, row.id) - 1
                   : rows.countBefore(row.type, row.id);
        const QString when = text(
            "it is tried at the next poll, within %1 s, and each refusal among the rows before it (%2) puts it off by one poll",
            "она пойдёт при следующем опросе, не позже чем через %1 с, а каждый отказ по %2 строкам перед ней отодвинет её на один опрос");
        return before > 0
                   ? NextTry{when.arg(QString::number(period), QString::number(before)), in(1)}
                   : NextTry{text("it is tried at the next poll, within %1 s",
                                  "она пойдёт при следующем опросе, не позже чем через %1 с")
                                 .arg(period),
                             in(1)};
    }
    const int behind = rows.countBehind(row.type, *failId);
    if (behind > 0)
        return {
            text(
                "it is tried again when the %1 rows behind the last refused one have had their turn, in %2 s at the earliest",
                "она пойдёт снова, когда пройдут строки после последнего отказа (их %1), не раньше чем через %2 с")
                .arg(QString::number(behind), QString::number(2 * period)),
            in(2)};
    return {text("it is tried again in a new round, which begins within %1 s",
                 "она пойдёт в новом круге, он начнётся не позже чем через %1 с")
                .arg(2 * period),
            in(2)};
}

/// Who has to do something, and what.
QString actorText(const Row &row, Cause cause, PortState service)
{
    const auto body = row.object();
    const QString address = destinationOf(row.type, body.value_or(QJsonObject()));
    const QString destination =
        address.isEmpty() ? text("the service of type %1", "сервиса типа %1").arg(row.type)
                          : address;
    if (cause == Cause::NoHandler)
        return text(
                   "the till's integrator must correct the type (queuectl drop %1 takes the row away)",
                   "тип должен исправить интегратор кассы (queuectl drop %1 уберёт строку)")
            .arg(row.id);
    if (cause == Cause::Body)
        return text("the till's integrator must correct the program that writes these rows",
                    "программу, которая пишет такие строки, должен исправить интегратор кассы");
    if (service == PortState::Nobody)
        return text("you must start the service (systemctl start queue)",
                    "запустите службу (systemctl start queue)");
    if (service == PortState::Other)
        return text(
                   "you must see who has the port (ss -ltnp 'sport = %1'), then free it or restart the service (systemctl restart queue)",
                   "выясните, кто занял порт (ss -ltnp 'sport = %1'), освободите его или перезапустите службу (systemctl restart queue)")
            .arg(controlPort());
    switch (cause) {
    case Cause::Network:
        return text("whoever looks after the network or %1 must make it reachable from here",
                    "связь с %1 должен восстановить тот, кто отвечает за сеть или за эту службу")
            .arg(destination);
    case Cause::Certificate:
        return text(
                   "whoever installs certificates must look at those for %1 (queuectl doctor lists them)",
                   "сертификаты для %1 должен проверить тот, кто их ставит (их покажет queuectl doctor)")
            .arg(destination);
    case Cause::Credentials:
        return text(
                   "whoever manages the account at %1 must correct name, password or key",
                   "имя, пароль или ключ для %1 должен исправить тот, кто ведёт эту учётную запись")
            .arg(destination);
    case Cause::Service:
        return text("the owner of %1 must mend it; nothing is to be done here",
                    "сбой должен устранить владелец %1; здесь делать нечего")
            .arg(destination);
    case Cause::Request:
        return text(
                   "the till's integrator and the owner of %1 must settle what the request lacks (queuectl show %2)",
                   "интегратор кассы и владелец %1 должны выяснить, что не так в запросе (queuectl show %2)")
            .arg(destination, QString::number(row.id));
    case Cause::Turn:
        return text("nobody has to act", "делать ничего не надо");
    case Cause::Unknown:
        return text("look into the service's log before you decide who must act",
                    "прежде чем решать, кому действовать, посмотрите журнал службы");
    default:
        return text("the engineer must read the log around that time, then ask the owner of %1",
                    "инженеру надо прочесть журнал за это время и обратиться к владельцу %1")
            .arg(destination);
    }
}

} // namespace

Report explainRow(const Call &call)
{
    const int id = rowId(call);
    MessageRows rows;
    const auto row = rows.find(id);
    if (!row)
        throw Failure(NotFound, text("There is no row %1; it may have been delivered meanwhile",
                                     "Строки %1 нет; возможно, она уже доставлена")
                                    .arg(id));
    const Situation situation = Situation::read();
    const PortState service = controlPortState();
    const Cause cause = situation.cause(*row);
    const NextTry next = nextTry(*row, cause, situation, rows, service);
    const QString answer = answerText(*row, cause, situation);
    const QString rule = ruleText(*row, cause);
    const QString actor = actorText(*row, cause, service);
    const QString sentence =
        text("Row %1 (%2) has waited for %3: %4; %5; %6; %7.",
             "Строка %1 (%2) ждёт %3: %4; %5; %6; %7.")
            .arg(QString::number(id), row->type, durationText(row->ageSeconds()), answer, rule,
                 next.text, actor);

    Report report;
    report.data = {{u"id"_s, id},
                   {u"type"_s, row->type},
                   {u"ageSeconds"_s, row->ageSeconds()},
                   {u"cause"_s, causeName(cause)},
                   {u"lastAnswer"_s, answer},
                   {u"rule"_s, rule},
                   {u"nextTry"_s, next.text},
                   {u"nextTryEarliest"_s, next.earliest.isValid()
                                              ? QJsonValue(next.earliest.toString(Qt::ISODate))
                                              : QJsonValue()},
                   {u"actor"_s, actor},
                   {u"serviceRunning"_s, service == PortState::Service},
                   {u"sentence"_s, sentence}};
    report.line(sentence);
    return report;
}

} // namespace queuectl
