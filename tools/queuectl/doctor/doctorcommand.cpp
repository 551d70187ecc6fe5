#include "tools/queuectl/command.h"
#include "tools/queuectl/doctor/doctor.h"
#include "tools/queuectl/text.h"

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

QString stateName(Check::State state)
{
    switch (state) {
    case Check::State::Ok:
        return u"ok"_s;
    case Check::State::Warning:
        return u"warning"_s;
    case Check::State::Error:
        break;
    }
    return u"error"_s;
}

QString areaText(const QString &area)
{
    struct Area
    {
        QString name;
        const char *english;
        const char *russian;
    };
    static const Area areas[] = {
        {u"settings"_s, "settings", "настройки"},
        {u"database"_s, "database", "база данных"},
        {u"rights"_s, "rights", "права"},
        {u"openssl"_s, "openssl", "openssl"},
        {u"clock"_s, "clock", "часы"},
        {u"port"_s, "port", "порт"},
        {u"certificates"_s, "certificates", "сертификаты"},
        {u"log"_s, "log", "журнал"},
        {u"journal"_s, "journal", "журнал доставки"},
        {u"rows"_s, "rows", "строки"},
    };
    for (const Area &known : areas) {
        if (known.name == area)
            return text(known.english, known.russian);
    }
    return area;
}

} // namespace

Report examine(const Call & /*call*/)
{
    const QList<Check> checks = runChecks();
    QJsonArray records;
    int errors = 0;
    int warnings = 0;
    bool hasConcerns = false;
    for (const Check &check : checks) {
        QJsonObject record{{u"state"_s, stateName(check.state)},
                           {u"area"_s, check.area},
                           {u"areaText"_s, areaText(check.area)},
                           {u"text"_s, check.text}};
        if (!check.file.isEmpty())
            record.insert(u"file"_s, check.file);
        if (check.line > 0)
            record.insert(u"line"_s, check.line);
        records.append(record);
        errors += check.state == Check::State::Error ? 1 : 0;
        warnings += check.state == Check::State::Warning ? 1 : 0;
        hasConcerns |= check.state == Check::State::Warning && check.area == u"rows";
    }
    Report report;
    report.data = {{u"checks"_s, records}, {u"errors"_s, errors}, {u"warnings"_s, warnings}};
    report.table(u"checks"_s, {{u"state"_s, text("State", "Вид"), Format::State},
                               {u"areaText"_s, text("Area", "Где")},
                               {u"text"_s, text("What", "Что"), Format::Plain, false, anyWidth}});
    report.line(QString());
    report.line(text("Errors: %1, warnings: %2", "Ошибок: %1, замечаний: %2")
                    .arg(QString::number(errors), QString::number(warnings)),
                errors > 0     ? Tone::Bad
                : warnings > 0 ? Tone::Careful
                               : Tone::Good);
    report.exitCode = errors > 0 || hasConcerns ? Found : Done;
    return report;
}

} // namespace queuectl
