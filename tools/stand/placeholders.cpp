#include "tools/stand/placeholders.h"

#include "rig/textpattern.h"
#include "tools/stand/scenarioerror.h"

#include <QJsonArray>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace stand {

QString expanded(const QString &text, const Places &places, const QString &where)
{
    QString result;
    qsizetype end = 0;
    QRegularExpressionMatchIterator matches = rig::TextPattern::placeholder().globalMatch(text);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        const QString name = match.captured(1);
        result += text.mid(end, match.capturedStart() - end);
        end = match.capturedEnd();
        if (places.contains(name) && !match.hasCaptured(2)) {
            result += places.value(name);
        } else if (name == u"fill") {
            result += QString(match.captured(2).toInt(), u'x');
        } else if (rig::TextPattern::isPattern(name, match.captured(2))) {
            result += match.captured();
        } else {
            QStringList known = places.keys();
            known.sort();
            throw ScenarioError(u"%1: unknown placeholder %2; known are %3, and the patterns"_s.arg(
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

} // namespace stand
