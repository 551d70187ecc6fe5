#include "tests/tools/catalogue/handlersource.h"

#include <QFile>
#include <QMetaProperty>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

const QString texts = u"text url file"_s;

/// The kinds that a value of the C++ type may have in a message.
QString kindsOf(const QString &type)
{
    static const QMap<QString, QString> kinds{
        {u"QString"_s, texts + u" number"_s},
        {u"QByteArray"_s, texts},
        {u"QUrl"_s, u"url"_s},
        {u"QVariantMap"_s, u"object"_s},
        {u"QJsonObject"_s, u"object"_s},
        {u"QStringList"_s, u"array"_s},
        {u"int"_s, u"integer"_s},
        {u"bool"_s, u"boolean"_s},
    };
    return kinds.value(type, u"?"_s);
}

/// The part of `text` from `begin` to the next `end`; empty when there is none.
QString piece(const QString &text, const QString &begin, const QString &end)
{
    const qsizetype from = text.indexOf(begin);
    return from < 0 ? QString() : text.mid(from, text.indexOf(end, from) - from);
}

void collect(const QString &text, const QString &pattern, QMap<QString, QString> &keys)
{
    const QRegularExpression expression(pattern);
    QRegularExpressionMatchIterator matches = expression.globalMatch(text);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        const QString type = match.captured(u"type"_s);
        const QString key = match.captured(u"key"_s);
        if (!type.isEmpty())
            keys.insert(key, kindsOf(type));
        else if (!keys.contains(key))
            keys.insert(key, QString());
    }
}

void collectDirect(const QString &text, QMap<QString, QString> &keys)
{
    collect(text, u"messageValue<(?<type>[^>]+)>\\(\\s*message,\\s*u\"(?<key>\\w+)\"_s"_s, keys);
    QMap<QString, QString> addresses;
    collect(text, u"messageAddress\\(\\s*message,\\s*u\"(?<key>\\w+)\"_s"_s, addresses);
    for (const QString &key : addresses.keys())
        keys.insert(key, kindsOf(u"QUrl"_s));
    collect(text, u"message\\.body\\.(?:value|contains)\\(u\"(?<key>\\w+)\"_s"_s, keys);
}

} // namespace

HandlerSource::HandlerSource(const QString &sourceDir, const QString &group,
                             const QString &className)
    : sourceDir(sourceDir)
{
    add(u"handlers/%1/%2.h"_s.arg(group, className.toLower()));
}

void HandlerSource::add(const QString &path)
{
    static const QRegularExpression include(u"#include \"(handlers/[^\"]+)\\.h\""_s);
    if (files.contains(path) || path.startsWith(u"handlers/common/"))
        return;
    QFile file(sourceDir + u'/' + path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    files.append(path);
    const QString content = QString::fromUtf8(file.readAll());
    text += content;
    if (path.endsWith(u".h"))
        add(path.chopped(1) + u"cpp"_s);
    QRegularExpressionMatchIterator matches = include.globalMatch(content);
    while (matches.hasNext())
        add(matches.next().captured(1) + u".h"_s);
}

bool HandlerSource::isValid() const
{
    return files.size() >= 2;
}

bool HandlerSource::contains(const QString &part) const
{
    return text.contains(part);
}

QString HandlerSource::requestRules() const
{
    return piece(text, u" RequestRules rules{"_s, u"};"_s)
           + piece(text, u"readRequest(message, {"_s, u"})"_s);
}

QMap<QString, QString> HandlerSource::readKeys() const
{
    QMap<QString, QString> keys;
    collectDirect(text, keys);
    collect(text, u"performStep\\(handler, message, u\"(?<key>\\w+)\"_s"_s, keys);
    collect(text, u"fillDescription\\([^;]*?u\"(?<key>\\w+)\"_s,\\s*message\\)"_s, keys);
    // These hand the whole body on to one that reads it.
    collect(piece(text, u"void Interface::sendFromQueue("_s, u"\n}\n"_s),
            u"object\\.value\\(\"(?<key>\\w+)\"_L1\\)"_s, keys);
    if (text.contains(u"->process(message.body)")) {
        QFile file(sourceDir + u"/shared/document/httppaymentprocessing.cpp"_s);
        if (file.open(QIODevice::ReadOnly))
            collect(QString::fromUtf8(file.readAll()), u"fields\\.value\\(u\"(?<key>\\w+)\"_s"_s,
                    keys);
    }
    if (text.contains(u"markersInList(message"))
        keys.insert(u"body"_s, texts);
    if (text.contains(u"Timeout::fromMessage("))
        keys.insert(u"timeout"_s, u"integer"_s);

    if (!text.contains(u"readRequest(message"))
        return keys;
    const QString record = requestRules();
    keys.insert(u"url"_s, u"url"_s);
    if (record.contains(u"isText ?"))
        keys.insert(u"body"_s, QString());
    else if (record.contains(u"Payload::Object") || record.contains(u"Payload::Map"))
        keys.insert(u"body"_s, u"object"_s);
    else if (record.contains(u"Payload::Array"))
        keys.insert(u"body"_s, u"array"_s);
    else if (!record.contains(u"Payload::EmptyDocument"))
        keys.insert(u"body"_s, texts);
    if (!record.contains(u".headers") || record.contains(u"Headers::FromMessage"))
        keys.insert(u"headers"_s, u"object"_s);
    if (!record.contains(u".timeout"))
        keys.insert(u"timeout"_s, u"integer"_s);
    return keys;
}

int HandlerSource::defaultTimeout() const
{
    static const QRegularExpression seconds(u"Timeout::fromMessage\\((\\d+)\\)"_s);
    return seconds.match(text).captured(1).toInt();
}

QMap<QString, QString> HandlerSource::keysIn(const QString &path)
{
    QMap<QString, QString> keys;
    QFile file(path);
    if (file.open(QIODevice::ReadOnly))
        collectDirect(QString::fromUtf8(file.readAll()), keys);
    return keys;
}

QMap<QString, QString> HandlerSource::keysOf(const QMetaObject &record)
{
    QMap<QString, QString> keys;
    for (int i = record.propertyOffset(); i < record.propertyCount(); ++i)
        keys.insert(QString::fromUtf8(record.property(i).name()), QString());
    return keys;
}
