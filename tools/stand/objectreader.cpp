#include "tools/stand/objectreader.h"

#include "tools/stand/scenarioerror.h"

#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

QString typeName(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return u"null"_s;
    case QJsonValue::Bool:
        return u"true or false"_s;
    case QJsonValue::Double:
        return u"a number"_s;
    case QJsonValue::String:
        return u"a text"_s;
    case QJsonValue::Array:
        return u"a list"_s;
    case QJsonValue::Object:
        return u"an object"_s;
    case QJsonValue::Undefined:
        break;
    }
    return u"nothing"_s;
}

} // namespace

ObjectReader::ObjectReader(const QJsonValue &value, const QString &where)
    : where(where)
{
    if (!value.isObject())
        throw ScenarioError(
            u"%1: an object is expected here, not %2"_s.arg(where, typeName(value)));
    content = value.toObject();
}

bool ObjectReader::has(const QString &key)
{
    asked.insert(key);
    return content.contains(key);
}

QJsonValue ObjectReader::value(const QString &key)
{
    asked.insert(key);
    const auto found = content.constFind(key);
    return found == content.constEnd() ? QJsonValue(QJsonValue::Undefined) : QJsonValue(*found);
}

QString ObjectReader::text(const QString &key, const QString &defaultValue)
{
    const QJsonValue found = value(key);
    if (found.isUndefined())
        return defaultValue;
    if (!found.isString())
        complain(key, u"a text is expected here, not %1"_s.arg(typeName(found)));
    return found.toString();
}

QString ObjectReader::neededText(const QString &key)
{
    const QString found = text(key);
    if (found.isEmpty())
        complain(key, u"is missing or empty"_s);
    return found;
}

QString ObjectReader::choice(const QString &key, const QStringList &choices)
{
    const QString found = text(key, choices.first());
    if (!choices.contains(found))
        complain(key, u"'%1' is not one of %2"_s.arg(found, choices.join(u", "_s)));
    return found;
}

int ObjectReader::number(const QString &key, int defaultValue)
{
    const QJsonValue found = value(key);
    if (found.isUndefined())
        return defaultValue;
    const double number = found.toDouble();
    if (!found.isDouble() || number != static_cast<double>(static_cast<int>(number)))
        complain(key, u"a whole number is expected here, not %1"_s.arg(typeName(found)));
    return static_cast<int>(number);
}

double ObjectReader::seconds(const QString &key)
{
    const QJsonValue found = value(key);
    if (found.isUndefined())
        return 0;
    if (!found.isDouble() || found.toDouble() < 0)
        complain(key, u"a number of seconds is expected here, not %1"_s.arg(typeName(found)));
    return found.toDouble();
}

bool ObjectReader::flag(const QString &key, bool defaultValue)
{
    const QJsonValue found = value(key);
    if (found.isUndefined())
        return defaultValue;
    if (!found.isBool())
        complain(key, u"true or false is expected here, not %1"_s.arg(typeName(found)));
    return found.toBool();
}

QStringList ObjectReader::texts(const QString &key)
{
    const QJsonValue found = value(key);
    if (found.isUndefined())
        return {};
    if (found.isString())
        return {found.toString()};
    if (!found.isArray())
        complain(key, u"a text or a list of texts is expected here, not %1"_s.arg(typeName(found)));
    QStringList result;
    const QJsonArray entries = found.toArray();
    for (const QJsonValue &entry : entries) {
        if (!entry.isString())
            complain(u"%1[%2]"_s.arg(key).arg(result.size()),
                     u"a text is expected here, not %1"_s.arg(typeName(entry)));
        result.append(entry.toString());
    }
    return result;
}

QString ObjectReader::lines(const QString &key)
{
    if (value(key).isString())
        return text(key);
    QString result;
    const QStringList all = texts(key);
    for (const QString &line : all)
        result += line + u'\n';
    return result;
}

ObjectReader ObjectReader::object(const QString &key)
{
    const QJsonValue found = value(key);
    return ObjectReader(found.isUndefined() ? QJsonValue(QJsonObject()) : found, place(key));
}

QList<ObjectReader> ObjectReader::objects(const QString &key)
{
    const QJsonValue found = value(key);
    if (found.isUndefined())
        return {};
    if (!found.isArray())
        complain(key, u"a list is expected here, not %1"_s.arg(typeName(found)));
    QList<ObjectReader> result;
    const QJsonArray entries = found.toArray();
    for (const QJsonValue &entry : entries)
        result.append(ObjectReader(entry, u"%1[%2]"_s.arg(place(key)).arg(result.size())));
    return result;
}

QStringList ObjectReader::keys() const
{
    return content.keys();
}

void ObjectReader::end() const
{
    const QStringList all = content.keys();
    for (const QString &key : all) {
        if (!asked.contains(key)) {
            QStringList known(asked.cbegin(), asked.cend());
            known.sort();
            complain(key, u"unknown key; possible keys are %1"_s.arg(known.join(u", "_s)));
        }
    }
}

QString ObjectReader::place(const QString &key) const
{
    // The place of the whole file ends with a colon and a space; a member follows it without a dot.
    return where.endsWith(u": "_s) ? where + key : where + u'.' + key;
}

void ObjectReader::complain(const QString &key, const QString &what) const
{
    throw ScenarioError(place(key) + u": "_s + what);
}

} // namespace stand
