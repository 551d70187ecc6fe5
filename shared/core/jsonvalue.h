#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

/// Walks `keys` down from `object`. The first value on the way that is no object, an absent one
/// included, is the result, however many keys remain; a walk that ends on an object gives JSON
/// null. So a reply of any shape can be read: each of QJsonValue's conversions of the result has
/// its default.
QJsonValue jsonValueByPath(const QJsonObject &object, const QStringList &keys);

/// The same for a dotted path, as in `order.processingStatus`. Empty parts are keys, too.
QJsonValue jsonValueByPath(const QJsonObject &object, const QString &path);

/// The text at a dotted path; empty for anything else.
QString jsonTextByPath(const QJsonObject &object, const QString &path);

/// The same for a value that services write as a text or as a number, such as a telephone number.
QString jsonLooseTextByPath(const QJsonObject &object, const QString &path);
