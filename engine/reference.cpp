#include "engine/reference.h"

#include "engine/cardmask.h"

#include <QJsonDocument>
#include <QUrl>
#include <QVariantList>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// A text of the till's may be longer than anybody searches for.
constexpr qsizetype longestReference = 200;

/// What a part of a path names in the value: one element, or each of them for `*`.
QVariantList elementsOf(const QVariant &value, const QString &key)
{
    switch (value.typeId()) {
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        return key == u"*" ? map.values() : QVariantList{map.value(key)};
    }
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        bool isNumber = false;
        const int index = key.toInt(&isNumber);
        if (isNumber)
            return {list.value(index)};
        return key == u"*" ? list : QVariantList();
    }
    case QMetaType::QString:
        return elementsOf(QJsonDocument::fromJson(value.toString().toUtf8()).toVariant(), key);
    default:
        return {};
    }
}

/// An address may hold a password, and its query a token.
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
        // In full: the number of a receipt is no 1e+15.
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
        QVariantList found{body};
        const QStringList parts = path.split(u'.');
        for (const QString &key : parts) {
            const QVariantList values = std::exchange(found, {});
            for (const QVariant &value : values)
                found.append(elementsOf(value, key));
        }
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
