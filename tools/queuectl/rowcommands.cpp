#include "tools/queuectl/command.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/masking.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/rowcheck.h"
#include "tools/queuectl/situation.h"
#include "tools/queuectl/terminal.h"
#include "tools/queuectl/text.h"
#include "tools/queuectl/timewords.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int listedRows = 50;

QJsonObject rowRecord(const Row &row)
{
    return {{u"id"_s, row.id},
            {u"type"_s, row.type},
            {u"cardNumber"_s, row.cardNumber},
            {u"statusCode"_s, row.statusCode},
            {u"creationTime"_s, jsonTime(row.creationTime)},
            {u"ageSeconds"_s, row.ageSeconds()}};
}

Failure noSuchRow(int id)
{
    return {NotFound, text("There is no row %1; it may have been delivered meanwhile",
                           "Строки %1 нет; возможно, она уже доставлена")
                          .arg(id)};
}

Row requireRow(MessageRows &rows, int id)
{
    const auto row = rows.find(id);
    if (!row)
        throw noSuchRow(id);
    return *row;
}

QString describe(const Row &row)
{
    return text("row %1 (type %2, %3 old)", "строку %1 (тип %2, ждёт %3)")
        .arg(QString::number(row.id), row.type, durationText(row.ageSeconds()));
}

} // namespace

Report listRows(const Call &call)
{
    const QString type = call.arguments.value(0);
    const bool hasAge = call.has(u"older"_s);
    if (type.isEmpty() && !hasAge)
        throw Failure(Usage, text("list takes a type, or --older for all types",
                                  "list принимает тип, а для всех типов — --older"));
    const QDateTime before =
        hasAge ? QDateTime::currentDateTime().addSecs(-readSpan(u"older"_s, call.value(u"older"_s)))
               : QDateTime();
    const int limit = call.number(u"limit"_s, listedRows);
    const int after = call.has(u"after"_s) ? call.number(u"after"_s, 1) : -1;
    MessageRows rows;
    // One more row tells whether these are all.
    QList<Row> page = rows.page(type, after, limit + 1, call.value(u"card"_s), before);
    if (page.isEmpty() && !type.isEmpty() && rows.count(type) == 0)
        requireDelivered(type);
    const bool hasMore = page.size() > limit;
    if (hasMore)
        page.removeLast();

    Report report;
    QJsonArray records;
    for (const Row &row : std::as_const(page)) {
        QJsonObject record = rowRecord(row);
        const auto body = row.object();
        record.insert(u"bodyBytes"_s, row.body.size());
        const QString destination = body ? destinationOf(row.type, *body) : QString();
        record.insert(u"destination"_s,
                      destination.isEmpty() ? QJsonValue() : QJsonValue(destination));
        records.append(record);
    }
    report.data = {{u"type"_s, type.isEmpty() ? QJsonValue() : QJsonValue(type)},
                   {u"rows"_s, records},
                   {u"more"_s, hasMore},
                   {u"total"_s, rows.count(type, before)}};
    QList<Column> columns{{u"id"_s, text("Id", "Номер"), Format::Plain, true}};
    if (type.isEmpty())
        columns.append({u"type"_s, text("Type", "Тип")});
    columns.append(QList<Column>{{u"ageSeconds"_s, text("Age", "Ждёт"), Format::Duration, true},
                                 {u"cardNumber"_s, text("Card", "Карта")},
                                 {u"statusCode"_s, text("Status", "Отметка")},
                                 {u"bodyBytes"_s, text("Bytes", "Байт"), Format::Plain, true},
                                 {u"destination"_s, text("Destination", "Куда")}});
    report.table(u"rows"_s, columns);
    if (page.isEmpty() && type.isEmpty())
        report.line(text("No rows are that old.", "Таких старых строк нет."), Tone::Good);
    else if (page.isEmpty())
        report.line(text("No rows of type %1 wait here.", "Строк типа %1 здесь нет.").arg(type));
    if (hasMore) {
        QStringList words;
        if (!type.isEmpty())
            words.append(type);
        if (hasAge)
            words.append(u"--older "_s + call.value(u"older"_s));
        report.line(text("More rows follow: queuectl list %1 --after %2",
                         "Есть ещё строки: queuectl list %1 --after %2")
                        .arg(words.join(u' '), QString::number(page.last().id)),
                    Tone::Faint);
    }
    if (!type.isEmpty() && !isDelivered(type))
        report.line(text("The service has no handler for type %1, these rows stay for ever.",
                         "У службы нет обработчика типа %1, эти строки останутся навсегда.")
                        .arg(type),
                    Tone::Bad);
    return report;
}

Report showRow(const Call &call)
{
    const int id = rowId(call);
    MessageRows rows;
    const Row row = requireRow(rows, id);
    const bool withSecrets = call.has(u"secrets"_s);
    const auto body = row.object();

    Report report;
    report.data = rowRecord(row);
    report.data.insert(u"secretsMasked"_s, !withSecrets);
    report.facts({{u"id"_s, text("Id", "Номер")},
                  {u"type"_s, text("Type", "Тип")},
                  {u"cardNumber"_s, text("Card", "Карта")},
                  {u"statusCode"_s, text("Status", "Отметка")},
                  {u"creationTime"_s, text("Written", "Записана"), Format::Time},
                  {u"ageSeconds"_s, text("Age", "Ждёт"), Format::Duration}});
    if (body) {
        const QJsonObject shown = withSecrets ? *body : withoutSecrets(row.type, *body);
        report.data.insert(u"body"_s, shown);
        report.line(QString());
        report.object(shown);
        return report;
    }
    const QString raw = QString::fromUtf8(row.body);
    report.data.insert(u"bodyText"_s, withSecrets ? raw : maskedText(raw));
    report.line(text("The body is not a JSON object; its handler gets an empty one.",
                     "Тело не объект JSON; обработчик получит пустое."),
                Tone::Bad);
    report.quote(report.data.value(u"bodyText"_s).toString());
    return report;
}

Report dropRow(const Call &call)
{
    const int id = rowId(call);
    MessageRows rows;
    const Row row = requireRow(rows, id);
    if (!call.has(u"yes"_s))
        confirm(text("Delete %1 undelivered?", "Удалить %1 без доставки?").arg(describe(row)));
    if (!rows.remove(id))
        throw noSuchRow(id);
    Report report;
    report.data = rowRecord(row);
    report.data.insert(u"dropped"_s, true);
    report.line(text("Row %1 is deleted.", "Строка %1 удалена.").arg(id));
    return report;
}

Report requeueRow(const Call &call)
{
    const int id = rowId(call);
    MessageRows rows;
    const Row row = requireRow(rows, id);
    if (!call.has(u"yes"_s))
        confirm(text("Move %1 to the end of the queue?", "Перенести %1 в конец очереди?")
                    .arg(describe(row)));
    const auto newId = rows.requeue(id);
    if (!newId)
        throw noSuchRow(id);
    Report report;
    report.data = {{u"id"_s, *newId}, {u"formerId"_s, id}, {u"type"_s, row.type}};
    report.line(text("Row %1 is now row %2, the last one of type %3.",
                     "Строка %1 теперь строка %2, последняя в очереди типа %3.")
                    .arg(QString::number(id), QString::number(*newId), row.type));
    return report;
}

} // namespace queuectl
