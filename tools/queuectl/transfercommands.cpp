#include "shared/text/escaping.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/outputfile.h"
#include "tools/queuectl/progress.h"
#include "tools/queuectl/rowcheck.h"
#include "tools/queuectl/terminal.h"
#include "tools/queuectl/text.h"

#include <QJsonDocument>

#include <functional>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int exportPageRows = 200;
/// The member of the closing line, by which a cut off file is told from a whole one.
const QString countMember = u"exported"_s;

QByteArray jsonLine(const QJsonObject &object)
{
    return escaping::escapedJson(QJsonDocument(object).toJson(QJsonDocument::Compact)) + '\n';
}

/// The columns as they are. The body goes as text, since a row need not hold valid JSON.
QJsonObject toRecord(const Row &row)
{
    return {{u"messageid"_s, row.id},
            {u"type"_s, row.type},
            {u"body"_s, QString::fromUtf8(row.body)},
            {u"cardnumber"_s, row.cardNumber},
            {u"statuscode"_s, row.statusCode},
            {u"creationtime"_s, row.creationTime.toString(u"yyyy-MM-dd HH:mm:ss"_s)}};
}

int writeRows(MessageRows &rows, const QString &type, bool withProgress,
              const std::function<void(const QByteArray &)> &write)
{
    // Rows that are written meanwhile belong to the next export.
    const int last = rows.lastId();
    Progress progress(rows.count(type), withProgress);
    int after = -1;
    int written = 0;
    while (after < last) {
        const QList<Row> page = rows.page(type, after, exportPageRows);
        for (const Row &row : page) {
            if (row.id > last)
                break;
            write(jsonLine(toRecord(row)));
            progress.show(++written);
        }
        if (page.size() < exportPageRows)
            break;
        after = page.last().id;
    }
    write(jsonAnswer({{countMember, written}}, JsonForm::Line));
    return written;
}

struct LineFault
{
    int line = 0;
    QString text;
};

/// One line of an import as a row; what is wrong goes to `faults`.
Row toRow(const QJsonObject &object, int line, bool anyType, QList<LineFault> &faults)
{
    const auto report = [&](const QString &what) {
        faults.append({line, what});
    };
    Row row;
    row.type = object.value(u"type"_s).toString();
    const QJsonValue body = object.value(u"body"_s);
    if (body.isString())
        row.body = body.toString().toUtf8();
    else if (body.isObject())
        row.body = QJsonDocument(body.toObject()).toJson(QJsonDocument::Compact);
    else
        report(text("there is no body", "нет тела body"));
    row.cardNumber = object.value(u"cardnumber"_s).toString();
    row.statusCode = object.value(u"statuscode"_s).toString();
    const QString time = object.value(u"creationtime"_s).toString();
    row.creationTime = QDateTime::fromString(time, u"yyyy-MM-dd HH:mm:ss"_s);
    if (!time.isEmpty() && !row.creationTime.isValid())
        report(text("'%1' is no time", "'%1' — не время").arg(time));
    if (row.type.isEmpty())
        report(text("there is no type", "нет типа type"));
    else if (!anyType && !isDelivered(row.type))
        report(
            text("the service has no handler for type '%1'", "у службы нет обработчика типа '%1'")
                .arg(row.type));
    const QList<Finding> lengths = checkLengths({row.type, {}, row.cardNumber, row.statusCode});
    for (const Finding &finding : lengths)
        report(finding.text);
    return row;
}

QList<Row> readRows(const QByteArray &content, bool anyType, QList<LineFault> &faults)
{
    QList<Row> rows;
    int number = 0;
    int closingLine = 0;
    const QList<QByteArray> lines = content.split('\n');
    Progress progress(lines.size());
    const QString what = text("checking", "проверка");
    for (const QByteArray &line : lines) {
        progress.show(number, what);
        ++number;
        if (line.trimmed().isEmpty())
            continue;
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(line, &error);
        if (!document.isObject()) {
            faults.append({number, error.error == QJsonParseError::NoError
                                       ? text("is no JSON object", "не объект JSON")
                                       : error.errorString()});
            continue;
        }
        if (closingLine > 0) {
            faults.append(
                {number, text("stands behind the closing line", "стоит после завершающей строки")});
        } else if (document.object().contains(countMember)) {
            closingLine = number;
            const int promised = document.object().value(countMember).toInt();
            if (promised != rows.size())
                faults.append({number, text("the file should have %1 rows and has %2",
                                            "в файле должно быть строк: %1, а есть: %2")
                                           .arg(promised)
                                           .arg(rows.size())});
        } else {
            rows.append(toRow(document.object(), number, anyType, faults));
        }
    }
    if (closingLine == 0)
        faults.append(
            {number,
             text("the closing line is missing, the file may be cut off (--partial takes it)",
                  "нет завершающей строки, файл может быть неполным (--partial примет и такой)")});
    return rows;
}

} // namespace

Report exportRows(const Call &call)
{
    const QString type = call.arguments.value(0);
    MessageRows rows;
    if (!type.isEmpty() && rows.count(type) == 0)
        requireDelivered(type);
    Report report;
    if (!call.has(u"output"_s)) {
        writeRows(rows, type, !isTerminal(), [](const QByteArray &line) { print(line); });
        report.isPrinted = true;
        return report;
    }

    const QString path = call.value(u"output"_s);
    // The rows hold passwords and tokens.
    OutputFile file(path, QFile::ReadOwner | QFile::WriteOwner);
    const int written =
        writeRows(rows, type, true, [&file](const QByteArray &line) { file.write(line); });
    file.commit();
    report.data = {{u"file"_s, path}, {u"rows"_s, written}};
    report.line(text("%1: rows written: %2. The file holds passwords and tokens.",
                     "%1: записано строк: %2. В файле есть пароли и ключи.")
                    .arg(path, QString::number(written)));
    return report;
}

Report importRows(const Call &call)
{
    const QByteArray content = readInput(call.arguments.first());
    QList<LineFault> faults;
    const QList<Row> rows = readRows(content, call.has(u"any-type"_s), faults);
    if (call.has(u"partial"_s) && !faults.isEmpty() && faults.last().text.contains(u"--partial"_s))
        faults.removeLast();

    Report report;
    if (!faults.isEmpty()) {
        QJsonArray records;
        for (const LineFault &fault : std::as_const(faults))
            records.append(QJsonObject{{u"line"_s, fault.line}, {u"text"_s, fault.text}});
        report.data = {{u"rows"_s, 0}, {u"faults"_s, records}};
        report.table(u"faults"_s,
                     {{u"line"_s, text("Line", "Строка"), Format::Plain, true},
                      {u"text"_s, text("What", "Что"), Format::Plain, false, anyWidth}});
        report.line(text("Nothing was written.", "Ничего не записано."), Tone::Bad);
        report.exitCode = Found;
        return report;
    }
    MessageRows table;
    Progress progress(rows.size());
    const QString what = text("writing", "запись");
    const QList<int> ids = table.insert(rows, [&](int done) { progress.show(done, what); });
    report.data = {{u"rows"_s, ids.size()},
                   {u"faults"_s, QJsonArray()},
                   {u"firstId"_s, ids.isEmpty() ? QJsonValue() : QJsonValue(ids.first())},
                   {u"lastId"_s, ids.isEmpty() ? QJsonValue() : QJsonValue(ids.last())}};
    report.line(text("Rows written: %1", "Записано строк: %1").arg(ids.size()), Tone::Good);
    return report;
}

} // namespace queuectl
