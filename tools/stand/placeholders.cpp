#include "tools/stand/placeholders.h"

#include "tools/stand/scenarioerror.h"

#include <QJsonArray>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

const QRegularExpression &placeholder()
{
    static const QRegularExpression expression(u"\\{\\{([a-z][A-Za-z0-9.]*)(?::(.*?))?\\}\\}"_s);
    return expression;
}

/// The regular expression behind a pattern's name, empty for no pattern.
QString patternOf(const QString &name, const QString &argument)
{
    if (name == u"any")
        return u".*"_s;
    if (name == u"digits")
        return u"[0-9]+"_s;
    if (name == u"uuid")
        return u"[0-9a-fA-F]{8}-(?:[0-9a-fA-F]{4}-){3}[0-9a-fA-F]{12}"_s;
    if (name == u"datetime")
        return u"\\d{4}-\\d\\d-\\d\\d[T ]\\d\\d:\\d\\d:\\d\\d[.,0-9]*(?:Z|[+-]\\d\\d:?\\d\\d)?"_s;
    if (name == u"match")
        return argument;
    return {};
}

} // namespace

QString expanded(const QString &text, const Places &places, const QString &where)
{
    QString result;
    qsizetype end = 0;
    QRegularExpressionMatchIterator matches = placeholder().globalMatch(text);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        const QString name = match.captured(1);
        result += text.mid(end, match.capturedStart() - end);
        end = match.capturedEnd();
        if (places.contains(name) && !match.hasCaptured(2)) {
            result += places.value(name);
        } else if (name == u"fill") {
            result += QString(match.captured(2).toInt(), u'x');
        } else if (!patternOf(name, match.captured(2)).isEmpty()) {
            result += match.captured();
        } else {
            QStringList known = places.keys();
            known.sort();
            throw ScenarioError(u"%1: unknown placeholder %2; there are %3, and the patterns"_s.arg(
                where, match.captured(), known.join(u", "_s)));
        }
    }
    return result + text.mid(end);
}

QJsonValue expanded(const QJsonValue &value, const Places &places, const QString &where)
{
    if (value.isString())
        return expanded(value.toString(), places, where);
    if (value.isArray()) {
        QJsonArray result;
        const QJsonArray entries = value.toArray();
        for (const QJsonValue &entry : entries)
            result.append(expanded(entry, places, where));
        return result;
    }
    if (value.isObject()) {
        QJsonObject result;
        const QJsonObject members = value.toObject();
        for (auto member = members.constBegin(); member != members.constEnd(); ++member)
            result.insert(expanded(member.key(), places, where),
                          expanded(member.value(), places, where));
        return result;
    }
    return value;
}

TextPattern::TextPattern(const QString &text)
{
    QString expression;
    qsizetype end = 0;
    QRegularExpressionMatchIterator matches = placeholder().globalMatch(text);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        const QString pattern = patternOf(match.captured(1), match.captured(2));
        if (pattern.isEmpty())
            continue;
        expression += QRegularExpression::escape(text.mid(end, match.capturedStart() - end));
        expression += u"(?:%1)"_s.arg(pattern);
        end = match.capturedEnd();
        isPlain = false;
    }
    plain = text;
    if (isPlain)
        return;
    expression += QRegularExpression::escape(text.mid(end));
    const auto options = QRegularExpression::DotMatchesEverythingOption;
    whole = QRegularExpression(u"\\A(?:%1)\\z"_s.arg(expression), options);
    part = QRegularExpression(expression, options);
}

bool TextPattern::matches(const QString &candidate) const
{
    return isPlain ? candidate == plain : whole.match(candidate).hasMatch();
}

bool TextPattern::occursIn(const QString &candidate) const
{
    return isPlain ? candidate.contains(plain) : part.match(candidate).hasMatch();
}

} // namespace stand
