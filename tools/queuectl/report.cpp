#include "tools/queuectl/report.h"

#include "shared/text/escaping.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/text.h"

#include <QDateTime>
#include <QJsonDocument>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

const QString emptyCell = u"-"_s;

QString cellText(const QJsonValue &value, Format format)
{
    if (value.isNull() || value.isUndefined())
        return emptyCell;
    switch (format) {
    case Format::Duration:
        return durationText(value.toInteger());
    case Format::Time:
        return timeText(QDateTime::fromString(value.toString(), Qt::ISODate));
    case Format::YesNo:
        return value.toBool() ? text("yes", "да") : text("no", "нет");
    case Format::State:
        return stateText(value.toString());
    case Format::Plain:
        break;
    }
    if (value.isBool())
        return value.toBool() ? text("yes", "да") : text("no", "нет");
    if (value.isDouble())
        return QString::number(value.toInteger());
    if (value.isArray()) {
        QStringList parts;
        for (const QJsonValue &part : value.toArray())
            parts.append(part.toVariant().toString());
        return parts.isEmpty() ? emptyCell : escaping::escaped(parts.join(u", "_s));
    }
    const QString shown = escaping::escaped(value.toString());
    return shown.isEmpty() ? emptyCell : shown;
}

/// The value in its column, cut to the width that the column may have.
QString tableCell(const QJsonValue &value, const Column &column)
{
    const QString shown = cellText(value, column.format);
    return column.widest == anyWidth ? shown : shortened(shown, column.widest);
}

QString cell(const QString &text, qsizetype width, const Column &column, const QString &value,
             bool withColours)
{
    const QString padding(std::max<qsizetype>(0, width - text.size()), u' ');
    const QString shown =
        column.format == Format::State ? coloured(text, stateTone(value), withColours) : text;
    return column.isRight ? padding + shown : shown + padding;
}

QString trimmedRight(QString line)
{
    while (line.endsWith(u' '))
        line.chop(1);
    return line;
}

QString tableText(const QJsonArray &rows, const QList<Column> &columns, bool withColours)
{
    if (rows.isEmpty())
        return {};
    QList<qsizetype> widths;
    for (const Column &column : columns) {
        qsizetype width = column.title.size();
        for (const QJsonValue &row : rows)
            width = std::max(width, tableCell(row.toObject().value(column.key), column).size());
        widths.append(width);
    }
    QStringList titles;
    for (qsizetype i = 0; i < columns.size(); ++i)
        titles.append(cell(columns[i].title, widths[i], {{}, {}, Format::Plain, columns[i].isRight},
                           {}, false));
    QString result =
        coloured(trimmedRight(titles.join(u"  "_s)), Tone::Strong, withColours) + u'\n';
    for (const QJsonValue &row : rows) {
        QStringList cells;
        for (qsizetype i = 0; i < columns.size(); ++i) {
            const QJsonValue value = row.toObject().value(columns[i].key);
            cells.append(cell(tableCell(value, columns[i]), widths[i], columns[i], value.toString(),
                              withColours));
        }
        result += trimmedRight(cells.join(u"  "_s)) + u'\n';
    }
    return result;
}

QJsonValue memberOf(const QJsonObject &object, const QString &dottedKey)
{
    QJsonValue value = object;
    const QStringList keys = dottedKey.split(u'.');
    for (const QString &key : keys)
        value = value.toObject().value(key);
    return value;
}

QString factsText(const QJsonObject &object, const QList<Column> &lines, bool withColours)
{
    qsizetype width = 0;
    for (const Column &line : lines)
        width = std::max(width, line.title.size());
    QString result;
    for (const Column &line : lines) {
        const QJsonValue value = memberOf(object, line.key);
        const QString shown = cellText(value, line.format);
        result += trimmedRight(u"%1  %2"_s.arg(
                      (line.title + u':').leftJustified(width + 1),
                      cell(shown, 0, {{}, {}, line.format}, value.toString(), withColours)))
                  + u'\n';
    }
    return result;
}

} // namespace

void Report::table(const QString &key, const QList<Column> &columns)
{
    blocks.append({Block::Kind::Table, {}, Tone::Plain, key, columns});
}

void Report::facts(const QList<Column> &lines)
{
    blocks.append({Block::Kind::Facts, {}, Tone::Plain, {}, lines});
}

void Report::line(const QString &text, Tone tone)
{
    blocks.append({Block::Kind::Line, text, tone, {}, {}});
}

void Report::quote(const QString &text)
{
    const QString shown = escaping::escaped(text, escaping::Newlines::Kept);
    blocks.append(
        {Block::Kind::Ready, QString(shown).replace(u"\n"_s, u"\n    "_s), Tone::Plain, {}, {}});
}

void Report::object(const QJsonObject &object)
{
    const QByteArray json = escaping::escapedJson(QJsonDocument(object).toJson());
    blocks.append({Block::Kind::Ready, QString::fromUtf8(json).trimmed(), Tone::Plain, {}, {}});
}

QString Report::toText(bool withColours) const
{
    QString result;
    for (const Block &block : blocks) {
        switch (block.kind) {
        case Block::Kind::Line:
            result += coloured(escaping::escaped(block.text), block.tone, withColours) + u'\n';
            break;
        case Block::Kind::Ready:
            result += block.text + u'\n';
            break;
        case Block::Kind::Table:
            result += tableText(data.value(block.key).toArray(), block.columns, withColours);
            break;
        case Block::Kind::Facts:
            result += factsText(data, block.columns, withColours);
            break;
        }
    }
    return result;
}

QByteArray Report::toJson() const
{
    return jsonAnswer(data, JsonForm::Indented);
}

QString shortened(const QString &text, qsizetype widest)
{
    if (text.size() <= widest)
        return text;
    QString result = text.left(widest - 1);
    if (result.back().isHighSurrogate())
        result.chop(1);
    return result + u'…';
}

QString stateText(const QString &state)
{
    struct State
    {
        QString name;
        const char *english;
        const char *russian;
    };
    static const State states[] = {
        {u"ok"_s, "ok", "норма"},
        {u"warning"_s, "warning", "внимание"},
        {u"error"_s, "error", "ошибка"},
        {u"unknown"_s, "unknown", "неизвестно"},
        {u"unreachable"_s, "unreachable", "недоступна"},
        {u"silent"_s, "does not answer", "не отвечает"},
        {u"other"_s, "another program has its port, or it hangs",
         "порт занят другой программой, или служба зависла"},
        {u"active"_s, "delivers", "обслуживает очередь"},
        {u"standby"_s, "stand-by, another service delivers", "в резерве, доставляет другая служба"},
        {u"undecided"_s, "waits for its lock on the database server",
         "ждёт блокировки на сервере базы данных"},
        {u"starting"_s, "starts", "запускается"},
    };
    for (const State &known : states) {
        if (known.name == state)
            return text(known.english, known.russian);
    }
    return state;
}

Tone stateTone(const QString &state)
{
    if (state == u"ok" || state == u"active")
        return Tone::Good;
    return state == u"warning" || state == u"standby" || state == u"starting" || state == u"unknown"
               ? Tone::Careful
               : Tone::Bad;
}

QString toneStart(Tone tone)
{
    int code = 0;
    switch (tone) {
    case Tone::Plain:
        return {};
    case Tone::Good:
        code = 32;
        break;
    case Tone::Bad:
        code = 31;
        break;
    case Tone::Careful:
        code = 33;
        break;
    case Tone::Faint:
        code = 2;
        break;
    case Tone::Strong:
        code = 1;
        break;
    }
    return u"\u001b[%1m"_s.arg(code);
}

QString coloured(const QString &text, Tone tone, bool withColours)
{
    if (!withColours || tone == Tone::Plain || text.isEmpty())
        return text;
    return toneStart(tone) + text + u"\u001b[0m"_s;
}

} // namespace queuectl
