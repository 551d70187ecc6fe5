#include "tools/catalogue/catalogue.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/text.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

QString inLanguage(const QString &english, const QString &russian)
{
    return isRussian() ? russian : english;
}

QJsonObject keyRecord(const catalogue::Key &key)
{
    QJsonObject record{{u"key"_s, key.name},
                       {u"kind"_s, key.kind},
                       {u"required"_s, key.required},
                       {u"secret"_s, key.secret},
                       {u"about"_s, inLanguage(key.about, key.aboutRu)}};
    if (!key.defaultValue.isUndefined())
        record.insert(u"default"_s, key.defaultValue);
    return record;
}

QString outcomeText(const QString &verdict)
{
    if (verdict == u"delivered")
        return text("delivered", "доставляется");
    return verdict == u"kept" ? text("kept", "остаётся")
                              : text("dropped undelivered", "удаляется без доставки");
}

Report listTypes(bool namesOnly)
{
    Report report;
    QJsonArray records;
    const QStringList types = deliveredTypes();
    for (const QString &name : types) {
        const catalogue::Type *type = catalogue::find(name);
        records.append(
            QJsonObject{{u"type"_s, name},
                        {u"group"_s, type ? type->group : QString()},
                        {u"about"_s, type ? inLanguage(type->about, type->aboutRu) : QString()}});
        if (namesOnly)
            report.line(name);
    }
    report.data = {{u"types"_s, records}};
    if (!namesOnly)
        report.table(u"types"_s,
                     {{u"type"_s, text("Type", "Тип")},
                      {u"group"_s, text("Group", "Группа")},
                      {u"about"_s, text("What it is", "Что это"), Format::Plain, false, anyWidth}});
    return report;
}

} // namespace

Report showTypes(const Call &call)
{
    if (call.arguments.isEmpty())
        return listTypes(call.has(u"names"_s));

    const QString name = call.arguments.first();
    requireDelivered(name);
    const catalogue::Type *type = catalogue::find(name);
    if (!type)
        throw Failure(NotFound,
                      text("There is no description of type %1", "Описания типа %1 нет").arg(name));
    QJsonArray keys;
    for (const catalogue::Key &key : type->keys)
        keys.append(keyRecord(key));
    QJsonArray outcomes;
    for (const catalogue::Outcome &outcome : type->outcomes)
        outcomes.append(QJsonObject{{u"verdict"_s, outcome.verdict},
                                    {u"verdictText"_s, outcomeText(outcome.verdict)},
                                    {u"kinds"_s, QJsonArray::fromStringList(outcome.kinds)},
                                    {u"reasons"_s, QJsonArray::fromStringList(outcome.reasons)},
                                    {u"when"_s, inLanguage(outcome.when, outcome.whenRu)}});
    Report report;
    report.data = {{u"type"_s, name},
                   {u"group"_s, type->group},
                   {u"about"_s, inLanguage(type->about, type->aboutRu)},
                   {u"keys"_s, keys},
                   {u"openKeys"_s, type->openKeys},
                   {u"outcomes"_s, outcomes},
                   {u"settings"_s, QJsonArray::fromStringList(type->settings)},
                   {u"example"_s, type->example}};
    report.facts({{u"type"_s, text("Type", "Тип")},
                  {u"about"_s, text("What it is", "Что это")},
                  {u"openKeys"_s, text("Further keys", "Прочие ключи"), Format::YesNo},
                  {u"settings"_s, text("Settings", "Настройки")}});
    report.line(QString());
    report.table(u"keys"_s,
                 {{u"key"_s, text("Key", "Ключ")},
                  {u"kind"_s, text("Kind", "Вид")},
                  {u"required"_s, text("Required", "Нужен"), Format::YesNo},
                  {u"secret"_s, text("Secret", "Секрет"), Format::YesNo},
                  {u"default"_s, text("Default", "Без него")},
                  {u"about"_s, text("What it is", "Что это"), Format::Plain, false, anyWidth}});
    report.line(QString());
    report.table(u"outcomes"_s,
                 {{u"verdictText"_s, text("Message", "Сообщение")},
                  {u"when"_s, text("When", "Когда"), Format::Plain, false, anyWidth}});
    report.line(QString());
    report.object(type->example);
    return report;
}

} // namespace queuectl
