#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

/// Follows `keys` down from `object`. Stops at the first value that is not an object, which may be
/// undefined, and returns it, even if keys remain. When all keys lead to an object, the result is
/// JSON null. So a reply of any shape can be read: each conversion of QJsonValue has a default.
QJsonValue jsonValueByPath(const QJsonObject &object, const QStringList &keys);

/// The same for a dotted path, as in `order.processingStatus`. An empty part is a key as well.
QJsonValue jsonValueByPath(const QJsonObject &object, const QString &path);

/// The text at a dotted path; empty for anything else.
QString jsonTextByPath(const QJsonObject &object, const QString &path);

/// The same for a value that some services send as a text and others as a number, such as a
/// telephone number.
QString jsonLooseTextByPath(const QJsonObject &object, const QString &path);
