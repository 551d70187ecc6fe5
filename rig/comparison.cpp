#include "rig/comparison.h"

#include "rig/peerscript.h"
#include "rig/textpattern.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

using namespace Qt::StringLiterals;

namespace rig {

namespace {

constexpr qsizetype longestText = 300;

QString inJson(const QJsonValue &value)
{
    if (value.isUndefined())
        return u"nothing"_s;
    const QByteArray list = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return shortened(QString::fromUtf8(list.mid(1, list.size() - 2)));
}

QString difference(const QString &what, const QString &expected, const QString &arrived)
{
    return u"%1\n  - %2\n  + %3"_s.arg(what, expected, arrived);
}

/// The position at which two long texts differ, with some text before it.
QString textDifference(const QString &what, const QString &expected, const QString &arrived)
{
    qsizetype start = 0;
    const qsizetype common = std::min(expected.size(), arrived.size());
    while (start < common && expected[start] == arrived[start])
        ++start;
    const qsizetype from = std::max<qsizetype>(0, start - 40);
    if (from == 0)
        return difference(what, shortened(expected), shortened(arrived));
    return difference(u"%1, from character %2 (expected %3 characters, arrived %4)"_s.arg(what)
                          .arg(from)
                          .arg(expected.size())
                          .arg(arrived.size()),
                      u"…"_s + shortened(expected.mid(from)),
                      u"…"_s + shortened(arrived.mid(from)));
}

/// Headers of the transport, which are not compared.
bool isTransportHeader(const QString &name)
{
    static const QSet<QString> names{u"host"_s,           u"user-agent"_s,
                                     u"accept"_s,         u"accept-encoding"_s,
                                     u"content-length"_s, u"connection"_s};
    return names.contains(name.toLower());
}

QStringList headerDifferences(const QMap<QString, QString> &expected, const ArrivedRequest &arrived)
{
    QStringList result;
    QSet<QString> wanted;
    for (auto header = expected.begin(); header != expected.end(); ++header) {
        wanted.insert(header.key().toLower());
        const QString value = arrived.header(header.key());
        if (value.isNull())
            result.append(
                difference(u"header %1"_s.arg(header.key()), header.value(), u"(not there)"_s));
        else if (!TextPattern(header.value()).matches(value))
            result.append(difference(u"header %1"_s.arg(header.key()), header.value(), value));
    }
    for (const auto &[name, value] : arrived.headers) {
        if (!wanted.contains(name.toLower()) && !isTransportHeader(name))
            result.append(difference(u"header %1"_s.arg(name), u"(none)"_s, value));
    }
    return result;
}

QStringList bodyDifferences(const QJsonValue &expected, const QByteArray &arrived)
{
    const QString what = u"body"_s;
    const QString text = QString::fromUtf8(arrived);
    if (expected.isString()) {
        if (TextPattern(expected.toString()).matches(text))
            return {};
        return {textDifference(what, expected.toString(), text)};
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(arrived, &error);
    if (error.error != QJsonParseError::NoError)
        return {difference(what, inJson(expected),
                           u"%1 (no JSON: %2)"_s.arg(shortened(text), error.errorString()))};
    return differences(
        expected, document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object()),
        what);
}

} // namespace

QString shortened(const QString &text)
{
    QString result = text.left(longestText);
    result.replace(u'\n', u"\\n"_s);
    result.replace(u'\r', u"\\r"_s);
    for (QChar &letter : result) {
        if (letter < u' ')
            letter = u'\ufffd';
    }
    if (text.size() > longestText)
        result += u"… (%1 characters)"_s.arg(text.size());
    return result.isEmpty() ? u"(empty)"_s : result;
}

QString ArrivedRequest::line() const
{
    return verb + u' ' + target;
}

QString ArrivedRequest::header(const QString &name) const
{
    for (const auto &[key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value.isNull() ? u""_s : value;
    }
    return {};
}

QString describe(const ArrivedRequest &request)
{
    QString result = request.line() + u'\n';
    for (const auto &[name, value] : request.headers)
        result += u"%1: %2\n"_s.arg(name, value);
    return result + shortened(QString::fromUtf8(request.body));
}

QStringList differences(const QJsonValue &expected, const QJsonValue &arrived, const QString &path)
{
    if (expected.isObject() && arrived.isObject()) {
        QStringList result;
        const QJsonObject left = expected.toObject();
        const QJsonObject right = arrived.toObject();
        for (auto member = left.begin(); member != left.end(); ++member)
            result +=
                differences(member.value(), right.value(member.key()), path + u'.' + member.key());
        for (auto member = right.begin(); member != right.end(); ++member) {
            if (!left.contains(member.key()))
                result +=
                    difference(path + u'.' + member.key(), u"nothing"_s, inJson(member.value()));
        }
        return result;
    }
    if (expected.isArray() && arrived.isArray()) {
        QStringList result;
        const QJsonArray left = expected.toArray();
        const QJsonArray right = arrived.toArray();
        for (qsizetype index = 0; index < std::max(left.size(), right.size()); ++index)
            result += differences(
                index < left.size() ? left.at(index) : QJsonValue(QJsonValue::Undefined),
                index < right.size() ? right.at(index) : QJsonValue(QJsonValue::Undefined),
                u"%1[%2]"_s.arg(path).arg(index));
        return result;
    }
    if (expected.isString() && arrived.isString()
        && TextPattern(expected.toString()).matches(arrived.toString()))
        return {};
    if (expected == arrived)
        return {};
    return {difference(path, inJson(expected), inJson(arrived))};
}

QStringList differences(const Exchange &expected, const ArrivedRequest &arrived)
{
    QStringList result;
    if (!expected.request.isEmpty() && !TextPattern(expected.request).matches(arrived.line()))
        result.append(difference(u"request line"_s, expected.request, arrived.line()));
    if (expected.headers)
        result += headerDifferences(*expected.headers, arrived);
    if (!expected.body.isUndefined())
        result += bodyDifferences(expected.body, arrived.body);
    return result;
}

} // namespace rig
