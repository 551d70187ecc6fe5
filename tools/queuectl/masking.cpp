#include "tools/queuectl/masking.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

const QString mask = u"***"_s;

QJsonValue maskedAt(const QJsonValue &value, const QString &path, const QStringList &further);

QString maskedAddresses(QString text)
{
    static const QRegularExpression account(uR"(([A-Za-z][A-Za-z0-9+.-]*://)[^/@\s"]*@)"_s);
    static const QRegularExpression parameter(uR"(([?&;])([^=&\s"?;]+)=([^&\s"#;]*))"_s);
    text.replace(account, u"\\1***@"_s);
    qsizetype position = 0;
    QRegularExpressionMatch match;
    while ((match = parameter.match(text, position)).hasMatch()) {
        position = match.capturedEnd();
        if (!isSecretName(match.captured(2)))
            continue;
        text.replace(match.capturedStart(3), match.capturedLength(3), mask);
        position = match.capturedStart(3) + mask.size();
    }
    return text;
}

QString maskedString(const QString &text, const QString &path, const QStringList &further)
{
    const QString trimmed = text.trimmed();
    if (trimmed.startsWith(u'{') || trimmed.startsWith(u'[')) {
        const QJsonDocument document = QJsonDocument::fromJson(trimmed.toUtf8());
        if (document.isObject()) {
            const QJsonObject object = maskedAt(document.object(), path, further).toObject();
            if (object != document.object())
                return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
            return text;
        }
        if (document.isArray()) {
            const QJsonArray array = maskedAt(document.array(), path, further).toArray();
            if (array != document.array())
                return QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Compact));
            return text;
        }
    }
    return maskedText(text);
}

QJsonValue maskedAt(const QJsonValue &value, const QString &path, const QStringList &further)
{
    if (value.isObject()) {
        QJsonObject object = value.toObject();
        for (auto member = object.begin(); member != object.end(); ++member) {
            const QString place = memberPath(path, member.key());
            const bool isSecret = isSecretName(member.key()) || further.contains(member.key())
                                  || further.contains(place);
            if (!isSecret)
                *member = maskedAt(member.value(), place, further);
            else if (!member->isNull() && member->toString(u"?"_s) != QString())
                *member = mask;
        }
        return object;
    }
    if (value.isArray()) {
        QJsonArray array = value.toArray();
        for (auto &&entry : array)
            entry = maskedAt(entry, path, further);
        return array;
    }
    return value.isString() ? QJsonValue(maskedString(value.toString(), path, further)) : value;
}

/// The end of the JSON object that opens at `start`, or -1.
qsizetype objectEnd(const QString &text, qsizetype start)
{
    int depth = 0;
    bool inString = false;
    for (qsizetype i = start; i < text.size(); ++i) {
        const QChar c = text[i];
        if (inString) {
            if (c == u'\\')
                ++i;
            else if (c == u'"')
                inString = false;
        } else if (c == u'"') {
            inString = true;
        } else if (c == u'{') {
            ++depth;
        } else if (c == u'}' && --depth == 0) {
            return i + 1;
        }
    }
    return -1;
}

QString maskedPairs(QString text)
{
    static const QRegularExpression pair(
        uR"re(([\w-]+)("?\s*[:=]\s*"?)(?!\*\*\*)((?:Bearer |Basic |Token )?[^\s",;&<>{}\]]+))re"_s,
        QRegularExpression::UseUnicodePropertiesOption | QRegularExpression::CaseInsensitiveOption);
    qsizetype position = 0;
    QRegularExpressionMatch match;
    while ((match = pair.match(text, position)).hasMatch()) {
        if (isSecretName(match.captured(1))) {
            text.replace(match.capturedStart(3), match.capturedLength(3), mask);
            position = match.capturedStart(3) + mask.size();
        } else {
            // The value may be the name of the next pair.
            position = match.capturedStart(3);
        }
    }
    // <Password>...</Password>
    static const QRegularExpression element(uR"(<(?:\w+:)?(\w+)([^<>]*)>([^<>]+)</)"_s);
    position = 0;
    while ((match = element.match(text, position)).hasMatch()) {
        position = match.capturedEnd(3);
        if (!isSecretName(match.captured(1)))
            continue;
        text.replace(match.capturedStart(3), match.capturedLength(3), mask);
        position = match.capturedStart(3) + mask.size();
    }
    return text;
}

} // namespace

QString memberPath(const QString &path, const QString &key)
{
    return path.isEmpty() ? key : path + u'.' + key;
}

bool isSecretName(const QString &name)
{
    static const QRegularExpression pattern(
        u"passw|passphrase|pwd|secret|token|authori[sz]ation|cookie|api-?_?key|secretkey|private-?_?key|access-?_?key|signature|credential|pass$|^pin$|pin-?_?code|^cvv|^cvc|^key$"_s,
        QRegularExpression::CaseInsensitiveOption);
    return pattern.match(name).hasMatch();
}

QJsonValue masked(const QJsonValue &value, const QStringList &further)
{
    return maskedAt(value, QString(), further);
}

QString maskedText(const QString &text)
{
    QString result;
    qsizetype position = 0;
    while (true) {
        const qsizetype start = text.indexOf(u'{', position);
        const qsizetype end = start < 0 ? -1 : objectEnd(text, start);
        const QString between = text.mid(position, start < 0 ? -1 : start - position);
        result += maskedPairs(maskedAddresses(between));
        if (start < 0)
            return result;
        const QJsonDocument document =
            end < 0 ? QJsonDocument()
                    : QJsonDocument::fromJson(QStringView(text).mid(start, end - start).toUtf8());
        if (document.isObject()) {
            result += QString::fromUtf8(
                QJsonDocument(masked(document.object()).toObject()).toJson(QJsonDocument::Compact));
            position = end;
        } else {
            result += u'{';
            position = start + 1;
        }
    }
}

QString withoutLongNumbers(const QString &text)
{
    static const QRegularExpression number(uR"((?<![\dA-Za-z-])\d{6,}(?=\d{4}(?![\dA-Za-z-])))"_s);
    return QString(text).replace(number, mask);
}

} // namespace queuectl
