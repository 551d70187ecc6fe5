#include "tools/queuectl/command.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/rowcheck.h"
#include "tools/queuectl/text.h"

#include <QJsonDocument>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

const QList<Column> &findingColumns()
{
    static const QList<Column> columns = {
        {u"state"_s, text("State", "Вид"), Format::State},
        {u"key"_s, text("Key", "Ключ")},
        {u"text"_s, text("What", "Что"), Format::Plain, false, anyWidth}};
    return columns;
}

/// Members of a row that a file may hold beside its body.
const QStringList &rowMembers()
{
    static const QStringList members = {u"type"_s,       u"body"_s,      u"cardnumber"_s,
                                        u"statuscode"_s, u"messageid"_s, u"creationtime"_s};
    return members;
}

/// The file holds a whole row, not only a body.
bool isRow(const QJsonObject &object)
{
    const QStringList keys = object.keys();
    return object.contains(u"type"_s) && object.contains(u"body"_s)
           && std::all_of(keys.cbegin(), keys.cend(),
                          [](const QString &key) { return rowMembers().contains(key); });
}

QByteArray bodyBytes(const QJsonValue &body)
{
    if (body.isString())
        return body.toString().toUtf8();
    if (body.isObject())
        return QJsonDocument(body.toObject()).toJson(QJsonDocument::Compact);
    return QJsonDocument(QJsonArray{body}).toJson(QJsonDocument::Compact);
}

RowText readRow(const QByteArray &content, const Call &call)
{
    const QJsonObject object = QJsonDocument::fromJson(content).object();
    RowText row{call.value(u"type"_s), content.trimmed(), call.value(u"card"_s), QString()};
    if (isRow(object)) {
        row.body = bodyBytes(object.value(u"body"_s));
        row.cardNumber = object.value(u"cardnumber"_s).toString(row.cardNumber);
        row.statusCode = object.value(u"statuscode"_s).toString();
        if (row.type.isEmpty())
            row.type = object.value(u"type"_s).toString();
    }
    return row;
}

} // namespace

Report putRow(const Call &call)
{
    const QString type = call.arguments[0];
    requireDelivered(type);
    const RowText given{type, readInput(call.arguments[1]).trimmed(), call.value(u"card"_s),
                        QString()};
    const QList<Finding> findings = checkRow(given);

    Report report;
    report.data = {{u"type"_s, type}, {u"findings"_s, toJson(findings)}};
    report.table(u"findings"_s, findingColumns());
    if (hasErrors(findings) && !call.has(u"force"_s)) {
        report.data.insert(u"id"_s, QJsonValue());
        report.line(text("Nothing was written. To write the row despite this, add --force.",
                         "Ничего не записано. Чтобы всё же записать строку, добавьте --force."),
                    Tone::Bad);
        report.exitCode = Found;
        return report;
    }
    Row row;
    row.type = type;
    row.body = given.body;
    row.cardNumber = given.cardNumber;
    const int id = MessageRows().insert({row}).first();
    report.data.insert(u"id"_s, id);
    report.line(
        text(
            "Row %1 is written; the service sees it at its next poll, or at once with: queuectl start %2",
            "Записана строка %1; служба увидит её при следующем опросе или сразу по команде: queuectl start %2")
            .arg(QString::number(id), type));
    return report;
}

Report lintRow(const Call &call)
{
    const RowText row = readRow(readInput(call.arguments.first()), call);
    const QList<Finding> findings = checkRow(row);
    Report report;
    report.data = {{u"type"_s, row.type},
                   {u"findings"_s, toJson(findings)},
                   {u"good"_s, !hasErrors(findings)}};
    report.table(u"findings"_s, findingColumns());
    if (findings.isEmpty())
        report.line(text("Nothing is wrong with it.", "Замечаний нет."), Tone::Good);
    if (row.type.isEmpty())
        report.line(
            text(
                "The file does not hold a row with type and body. If it holds only a body, give the type with --type.",
                "В файле нет строки с type и body. Если в нём только тело, укажите тип: --type."),
            Tone::Careful);
    report.exitCode = hasErrors(findings) ? Found : Done;
    return report;
}

} // namespace queuectl
