#include "tools/catalogue/catalogue.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace catalogue {

namespace {

const QString intro = uR"(# Message types

<!-- Written by `build/dev/message-types > docs/message-types.md` from tools/catalogue/types.
     Change it there. -->

For authors of programs that write messages. After reading the section of a type they can write a
correct row and know what becomes of it.

The till application writes a row into the table `message`. Its `type` names the handler; its
`body`, a JSON object, holds the data. `queuectl types TYPE` prints the section of a type, and
`queuectl lint FILE` checks a body against it.

For all types:

- Keys are case-sensitive. A key that is not listed is not read.
- A number may be written as a text. A value of another kind is read as an empty value or as 0.
- `timeout` is in seconds and limits each request. 0 means 30 seconds unless the key says otherwise.
- **secret** marks a value that `queuectl` shows as `***`. The log line with the whole body contains
  it.
- *delivered*: the service did what was asked, now or before, and the row is deleted. *dropped*: the
  row is deleted although the service did not do it, since a retry would not help. *kept*: the row
  stays. Younger messages of its type go first, then it is tried again. The number of attempts is
  unlimited unless the type sets a limit.
- For a kept row the table names what may have to be corrected first: the *network*, a
  *certificate*, the *credentials*, the *request* as the till wrote it, or the *service*. A row that
  is *not tried* waits for another row.
- The delivery journal keeps the outcome of each message. A dropped message also leaves a line of
  category `outcome` in the log. The recorded reason is the text in quotes; … marks a part that
  differs.
- "No answer" means a refused or interrupted connection, a certificate that one side does not
  accept, an incomplete answer, or one that does not come in time. The service may have carried out
  the request, so it must accept the same request twice. An invalid address counts as no answer
  unless the table says otherwise.
- A body that is not a JSON object counts as an empty object.

)"_s;

QString cell(QString text)
{
    return text.replace(u'|', u"\\|"_s).replace(u'\n', u' ');
}

QString code(const QString &text)
{
    return u'`' + text + u'`';
}

QString shown(const QJsonValue &value)
{
    if (value.isUndefined())
        return {};
    QByteArray text = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return code(QString::fromUtf8(text.mid(1, text.size() - 2)));
}

QString keyTable(const Type &type)
{
    QString table =
        u"| Key | Kind | Needed | Default | What it is |\n| --- | --- | --- | --- | --- |\n"_s;
    for (const Key &key : type.keys) {
        const QString about = key.secret ? u"**secret.** "_s + key.about : key.about;
        table += u"| %1 | %2 | %3 | %4 | %5 |\n"_s.arg(code(key.name), key.kind,
                                                       key.required ? u"yes"_s : QString(),
                                                       shown(key.defaultValue), cell(about));
    }
    if (type.openKeys)
        table += u"\nFurther keys are sent with the message.\n"_s;
    return table;
}

QString remark(const Outcome &outcome)
{
    if (outcome.verdict == u"kept" && outcome.kinds.isEmpty())
        return u"not tried"_s;
    QStringList parts;
    if (!outcome.kinds.isEmpty())
        parts.append(outcome.kinds.join(u", "_s));
    for (const QString &reason : outcome.reasons)
        parts.append(u'«' + QString(reason).replace(u'*', u'…') + u'»');
    return parts.join(u"; "_s);
}

QString outcomeTable(const Type &type)
{
    QString table = u"| When | The message is | What to correct, or the recorded reason |\n"
                    "| --- | --- | --- |\n"_s;
    for (const Outcome &outcome : type.outcomes)
        table +=
            u"| %1 | %2 | %3 |\n"_s.arg(cell(outcome.when), outcome.verdict, cell(remark(outcome)));
    return table;
}

QString settingsLine(const Type &type)
{
    if (type.settings.isEmpty())
        return {};
    QStringList names;
    for (const QString &name : type.settings)
        names.append(code(name));
    return u"Settings: %1.\n\n"_s.arg(names.join(u", "));
}

QString section(const Type &type)
{
    const QString example =
        QString::fromUtf8(QJsonDocument(type.example).toJson(QJsonDocument::Indented));
    return u"## %1\n\n%2\n\n%3\n%4```json\n%5```\n\n%6\nScenarios: "
           u"[%7](../tests/scenarios/%7). Handler: `%8`.\n\n"_s.arg(
               type.name, type.about, keyTable(type), settingsLine(type), example,
               outcomeTable(type), u"%1/%2.json"_s.arg(type.group, type.name), type.handler);
}

QString overview()
{
    QString table = u"| Type | What it is for |\n| --- | --- |\n"_s;
    for (const Type &type : types()) {
        const QString link = u"[%1](#%2)"_s.arg(type.name, type.name.toLower());
        table += u"| %1 | %2 |\n"_s.arg(link, cell(type.about.section(u". "_s, 0, 0)));
    }
    return table;
}

} // namespace

QString toMarkdown()
{
    QString page = intro + overview() + u'\n';
    for (const Type &type : types())
        page += section(type);
    page.chop(1);
    return page;
}

} // namespace catalogue
