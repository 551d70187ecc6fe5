#include "tools/stand/bodyvalues.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

void collect(const QJsonValue &value, const QString &place, QList<BodyValue> &values)
{
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (auto member = object.begin(); member != object.end(); ++member)
            collect(member.value(), place.isEmpty() ? member.key() : place + u'.' + member.key(),
                    values);
    } else if (value.isArray()) {
        const QJsonArray array = value.toArray();
        for (const QJsonValue &entry : array)
            collect(entry, place, values);
    } else if (value.isString() || value.isDouble() || value.isBool()) {
        values.append({place, value.toVariant().toString()});
    }
}

QSet<QString> placesIn(const QByteArray &body)
{
    QSet<QString> places;
    const QList<BodyValue> values = valuesIn(body);
    for (const BodyValue &value : values)
        places.insert(value.place);
    return places;
}

QJsonValue replaced(const QJsonValue &value, const QString &at, const QString &place,
                    const QString &text)
{
    if (value.isObject()) {
        QJsonObject object = value.toObject();
        for (auto member = object.begin(); member != object.end(); ++member)
            *member = replaced(member.value(),
                               at.isEmpty() ? member.key() : at + u'.' + member.key(), place, text);
        return object;
    }
    if (value.isArray()) {
        QJsonArray array = value.toArray();
        for (auto &&entry : array)
            entry = replaced(entry, at, place, text);
        return array;
    }
    if (at != place)
        return value;
    bool isNumber = false;
    const double number = text.toDouble(&isNumber);
    return value.isDouble() && isNumber ? QJsonValue(number) : QJsonValue(text);
}

} // namespace

QList<BodyValue> valuesIn(const QByteArray &body)
{
    QList<BodyValue> values;
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isNull()) {
        collect(document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object()),
                QString(), values);
        return values;
    }
    const QString text = QString::fromUtf8(body);
    if (text.trimmed().startsWith(u'<')) {
        static const QRegularExpression value(
            uR"re(<(?:\w+:)?(\w+)[^<>]*>([^<>]*)</|[ ](\w+)="([^"]*)")re"_s);
        auto matches = value.globalMatch(text);
        while (matches.hasNext()) {
            const QRegularExpressionMatch match = matches.next();
            const bool isElement = !match.captured(1).isEmpty();
            values.append(
                {match.captured(isElement ? 1 : 3), match.captured(isElement ? 2 : 4).trimmed()});
        }
        return values;
    }
    const auto items = QUrlQuery(text).queryItems();
    for (const auto &[name, value] : items)
        values.append({name, value});
    return values;
}

double likeness(const QByteArray &one, const QByteArray &other)
{
    const QSet<QString> left = placesIn(one);
    const QSet<QString> right = placesIn(other);
    const qsizetype all = (left + right).size();
    return all == 0 ? 0 : double((left & right).size()) / double(all);
}

QByteArray withValue(const QByteArray &body, const QString &place, const QString &value)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (document.isObject())
        return QJsonDocument(replaced(document.object(), QString(), place, value).toObject())
            .toJson(QJsonDocument::Compact);
    if (document.isArray())
        return QJsonDocument(replaced(document.array(), QString(), place, value).toArray())
            .toJson(QJsonDocument::Compact);
    QString text = QString::fromUtf8(body);
    if (!text.trimmed().startsWith(u'<'))
        return body;
    const QString name = QRegularExpression::escape(place);
    const QString written = QString(value).toHtmlEscaped().replace(u'\\', u"\\\\"_s);
    text.replace(QRegularExpression(u"(<(?:\\w+:)?%1(?: [^<>]*)?>)[^<>]*(</)"_s.arg(name)),
                 u"\\1"_s + written + u"\\2"_s);
    text.replace(QRegularExpression(u"( %1=\")[^\"]*(\")"_s.arg(name)),
                 u"\\1"_s + written + u"\\2"_s);
    return text.toUtf8();
}

} // namespace stand
