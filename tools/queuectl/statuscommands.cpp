#include "shared/core/folderlock.h"
#include "shared/core/paths.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/concerns.h"
#include "tools/queuectl/controlport.h"
#include "tools/queuectl/entrytext.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/logsettings.h"
#include "tools/queuectl/situation.h"
#include "tools/queuectl/text.h"
#include "tools/queuectl/todaytable.h"

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

QJsonObject typeRecord(const TypeRows &rows, const Situation &situation)
{
    const auto failId = situation.failIds.of(rows.type);
    const bool hasHandler = isDelivered(rows.type);
    const std::optional<JournalEntry> kept = situation.journal().lastKept(rows.type);
    const Ended today = situation.today.value(rows.type);
    QJsonValue failure;
    if (!hasHandler)
        failure = causeText(Cause::NoHandler);
    else if (kept)
        failure = answerOf(*kept);
    return {
        {u"type"_s, rows.type},
        {u"waiting"_s, rows.count},
        {u"oldest"_s, jsonTime(rows.oldest)},
        {u"oldestAgeSeconds"_s, rows.oldest.isValid()
                                    ? QJsonValue(rows.oldest.secsTo(QDateTime::currentDateTime()))
                                    : QJsonValue()},
        {u"failId"_s, failId ? QJsonValue(*failId) : QJsonValue()},
        {u"delivered"_s, hasHandler},
        {u"deliveredToday"_s, today.delivered},
        {u"droppedToday"_s, today.dropped},
        {u"lastFailure"_s, failure},
        {u"lastFailureCause"_s,
         kept ? QJsonValue(causeName(causeOfKind(kept->kind))) : QJsonValue()},
        {u"lastFailureTime"_s, kept ? jsonTime(kept->last) : QJsonValue()},
    };
}

/// Reads the rows into `data`; the state of the database says how that went.
QJsonObject readDatabase(QJsonObject &data, const Situation &situation)
{
    QJsonObject database = databasePlace();
    QList<TypeRows> types;
    try {
        MessageRows rows;
        types = rows.types();
        QJsonArray concerns;
        for (const Concern &concern : concernsOf(rows, situation))
            concerns.append(QJsonObject{{u"type"_s, concern.type},
                                        {u"kind"_s, kindName(concern.kind)},
                                        {u"rows"_s, concern.count},
                                        {u"text"_s, concern.text}});
        data.insert(u"concerns"_s, concerns);
    } catch (const BasicException &exception) {
        database.insert(u"state"_s, u"unreachable"_s);
        database.insert(u"text"_s, exception.tr().ru());
        return database;
    }
    QJsonArray records;
    int waiting = 0;
    for (const TypeRows &rows : types) {
        records.append(typeRecord(rows, situation));
        waiting += rows.count;
    }
    data.insert(u"types"_s, records);
    data.insert(u"waiting"_s, waiting);
    database.insert(u"state"_s, u"ok"_s);
    return database;
}

/// The process that has the service's folder, as far as this account may see it.
QJsonObject serviceProcess()
{
    const auto holder = FolderLock::holder(serviceLockFile());
    if (!holder)
        return {{u"pid"_s, QJsonValue()}, {u"role"_s, QJsonValue()}};
    return {{u"pid"_s, holder->processId}, {u"role"_s, holder->role}};
}

QJsonObject askControl()
{
    QJsonObject control{{u"port"_s, controlPort()}};
    const ServiceAnswer answer = lookAtService();
    switch (answer.state) {
    case PortState::Service:
        control.insert(u"state"_s, u"ok"_s);
        control.insert(u"errorsCount"_s, answer.errorsCount);
        break;
    case PortState::Other:
        control.insert(u"state"_s, u"other"_s);
        break;
    case PortState::Nobody:
        control.insert(u"state"_s, u"silent"_s);
        break;
    }
    return control;
}

} // namespace

Report showStatus(const Call & /*call*/)
{
    const Situation situation = Situation::read();
    Report report;
    report.data.insert(u"types"_s, QJsonArray());
    report.data.insert(u"concerns"_s, QJsonArray());
    const QJsonObject control = askControl();
    const QJsonObject database = readDatabase(report.data, situation);
    report.data.insert(u"database"_s, database);
    report.data.insert(u"control"_s, control);
    report.data.insert(u"process"_s, serviceProcess());
    const QString log = logFile();
    report.data.insert(u"log"_s, log.isEmpty() ? QJsonValue() : QJsonValue(log));
    report.data.insert(u"failIdsSaved"_s, jsonTime(situation.failIds.savedAt));

    const bool hasDatabase = database.value(u"state"_s).toString() == u"ok";
    const bool hasService = control.value(u"state"_s).toString() == u"ok";
    report.facts({{u"database.state"_s, text("Database", "База данных"), Format::State},
                  {u"database.place"_s, text("Place", "Место")},
                  {u"control.state"_s, text("Service", "Служба"), Format::State},
                  {u"process.role"_s, text("Role", "Роль"), Format::State},
                  {u"process.pid"_s, text("Process", "Процесс")},
                  {u"control.port"_s, text("Port", "Порт")},
                  {u"control.errorsCount"_s, text("Database errors", "Ошибок базы")},
                  {u"log"_s, text("Log file", "Файл журнала")},
                  {u"failIdsSaved"_s, text("Fail ids saved", "Отказы записаны"), Format::Time},
                  {u"waiting"_s, text("Waiting", "Ждут")}});
    if (!hasDatabase)
        report.line(database.value(u"text"_s).toString(), Tone::Bad);
    report.line(QString());
    report.table(
        u"types"_s,
        {{u"type"_s, text("Type", "Тип")},
         {u"waiting"_s, text("Waiting", "Ждут"), Format::Plain, true},
         {u"oldestAgeSeconds"_s, text("Oldest", "Старшей"), Format::Duration, true},
         {u"failId"_s, text("Fail id", "Отказ на"), Format::Plain, true},
         {u"deliveredToday"_s, text("Delivered today", "Доставлено за день"), Format::Plain, true},
         {u"droppedToday"_s, text("Dropped", "Снято"), Format::Plain, true},
         {u"lastFailureTime"_s, text("At", "Когда"), Format::Time},
         {u"lastFailure"_s, text("Last failure", "Последний отказ"), Format::Plain, false,
          answerWidth}});
    const QJsonArray concerns = report.data.value(u"concerns"_s).toArray();
    if (!concerns.isEmpty()) {
        report.line(QString());
        report.table(u"concerns"_s,
                     {{u"type"_s, text("Needs a look", "Требует внимания")},
                      {u"text"_s, text("Why", "Почему"), Format::Plain, false, anyWidth}});
    }
    const bool isWaiting = report.data.value(u"waiting"_s).toInt() > 0;
    if (situation.failIds.isDenied)
        report.line(text("No rights: this account may not read %1, so the fail ids are not known.",
                         "Нет прав: эта учётная запись не может читать %1, отказы неизвестны.")
                        .arg(startIdsFile()),
                    Tone::Careful);
    if (hasDatabase && !isWaiting)
        report.line(text("Nothing waits.", "Очередь пуста."), Tone::Good);
    addToday(report, situation);
    if (!hasDatabase)
        report.exitCode = NoDatabase;
    else if (!hasService)
        report.exitCode = NoService;
    else if (!concerns.isEmpty())
        report.exitCode = Found;
    return report;
}

} // namespace queuectl
