#include "engine/reference.h"

#include "engine/cardmask.h"

#include <QJsonDocument>
#include <QUrl>
#include <QVariantList>

using namespace Qt::StringLiterals;

namespace {

/// A value may be longer than anything people search for.
constexpr qsizetype longestReference = 200;

/// Appends the values that the path selects inside `value`.
void collect(const QVariant &value, QStringView path, QVariantList &found)
{
    if (path.isEmpty()) {
        found.append(value);
        return;
    }
    const qsizetype dot = path.indexOf(u'.');
    const QStringView key = path.first(dot < 0 ? path.size() : dot);
    const QStringView rest = dot < 0 ? QStringView() : path.sliced(dot + 1);
    const bool isAll = key == u"*"_s;
    switch (value.typeId()) {
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        if (isAll) {
            for (const QVariant &element : map)
                collect(element, rest, found);
        } else if (const auto element = map.constFind(key.toString()); element != map.constEnd()) {
            collect(*element, rest, found);
        }
        break;
    }
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        bool isNumber = false;
        const int index = key.toInt(&isNumber);
        if (isAll) {
            for (const QVariant &element : list)
                collect(element, rest, found);
        } else if (isNumber && index >= 0 && index < list.size()) {
            collect(list[index], rest, found);
        }
        break;
    }
    case QMetaType::QString:
        collect(QJsonDocument::fromJson(value.toString().toUtf8()).toVariant(), path, found);
        break;
    default:
        break;
    }
}

/// An address may contain a password, and its query a token.
QString withoutSecrets(const QString &text)
{
    if (!text.contains(u"://"_s))
        return text;
    return QUrl(text).toString(QUrl::RemoveUserInfo | QUrl::RemoveQuery | QUrl::RemoveFragment);
}

QString textOf(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QString:
        return withoutSecrets(value.toString().simplified());
    case QMetaType::Double:
        // Without an exponent: a receipt number must not become 1e+15.
        return QString::number(value.toDouble(), 'f', QLocale::FloatingPointShortest);
    case QMetaType::QVariantList: {
        QStringList texts;
        const QVariantList list = value.toList();
        for (const QVariant &element : list)
            texts.append(textOf(element));
        texts.removeAll(QString());
        return texts.join(u' ');
    }
    case QMetaType::QVariantMap:
        return {};
    default:
        return value.toString();
    }
}

} // namespace

QString referenceOf(const QVariantMap &body, const QStringList &keys)
{
    QStringList texts;
    for (const QString &path : keys) {
        QVariantList found;
        collect(body, path, found);
        const QString text = textOf(found);
        if (!text.isEmpty() && !texts.contains(text))
            texts.append(text);
    }
    return referenceText(texts.join(u' '));
}

QString referenceText(const QString &text)
{
    return maskCardNumbers(text).left(longestReference);
}
