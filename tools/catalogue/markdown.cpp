#include "tools/catalogue/catalogue.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace catalogue {

namespace {

const QString intro = uR"(# Message types

<!-- Written by `build/dev/message-types > docs/message-types.md` from tools/catalogue/types.
     Change it there. -->

A till hands over work by a row in the table `message`: its `type` says who delivers it, its `body`,
a JSON object, says what. This page lists every type: what it is for, the keys of its body, an
example, and what becomes of the row. `queuectl types TYPE` prints the same, and `queuectl lint
FILE` holds a row against it.

What holds for all types:

- Keys are written exactly as here, in upper and lower case. A key that is not listed is not read.
- A number may be written as a text. A value of another kind is read as an empty one or as 0.
- `timeout` is in seconds and bounds each request. 0 means 30 seconds where nothing else is said.
- **secret** marks what logs and tools do not show.
- *delivered*: the service did what was asked, now or before, and the row is gone. *dropped*: the
  row is gone although the service did not do it, since another attempt would not help. *kept*: the
  row stays, the messages behind it go first, and it is tried again in a later pass. There is no
  limit to the attempts unless a type has one of its own.
- A kept row tells what has to be put right first: the *network*, a *certificate*, the
  *credentials*, the *request* as the till wrote it, or the *service* itself. A row that is *not
  tried* has to wait for another one.
- The service's journal keeps what became of each message, and what was dropped leaves a line of
  category `outcome` in the log. The reason of a message that was dropped or done before is the text
  in quotes, where … is a part that differs.
- "No answer" is a refused or broken connection, a certificate that one side does not accept, an
  answer that breaks off, or one that does not come in time. The service may have done the work all
  the same, so it must take the same request twice. An address that cannot be used counts as no
  answer where nothing else is said.
- A body that is no JSON object counts as an empty one.

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
        table += u"\nFurther keys go out with the message.\n"_s;
    return table;
}

QString remark(const Outcome &outcome)
{
    if (outcome.verdict == u"kept")
        return outcome.kinds.isEmpty() ? u"not tried"_s : outcome.kinds.join(u", "_s);
    QStringList reasons;
    for (const QString &reason : outcome.reasons)
        reasons.append(u'«' + QString(reason).replace(u'*', u'…') + u'»');
    return reasons.join(u"; "_s);
}

QString outcomeTable(const Type &type)
{
    QString table = u"| When | The message is | What to put right, or the recorded reason |\n"
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
