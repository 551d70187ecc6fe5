#include "engine/reference.h"

#include "engine/cardmask.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

/// A text of the till's may be longer than anybody searches for.
constexpr qsizetype longestReference = 200;

QVariant elementOf(const QVariant &value, const QString &key)
{
    switch (value.typeId()) {
    case QMetaType::QVariantMap:
        return value.toMap().value(key);
    case QMetaType::QVariantList: {
        bool isNumber = false;
        const int index = key.toInt(&isNumber);
        return isNumber ? value.toList().value(index) : QVariant();
    }
    case QMetaType::QString:
        return QJsonDocument::fromJson(value.toString().toUtf8())
            .object()
            .toVariantMap()
            .value(key);
    default:
        return {};
    }
}

QString textOf(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QString:
        return value.toString().simplified();
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
        QVariant value = body;
        const QStringList parts = path.split(u'.');
        for (const QString &key : parts)
            value = elementOf(value, key);
        const QString text = textOf(value);
        if (!text.isEmpty() && !texts.contains(text))
            texts.append(text);
    }
    return referenceText(texts.join(u' '));
}

QString referenceText(const QString &text)
{
    return maskCardNumbers(text).left(longestReference);
}
