#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QJsonValue>

namespace queuectl {

enum class JsonForm
{
    /// Over several lines.
    Indented,
    /// On one line, for answers of which there are many.
    Line,
};

/// The object with the members `host`, `version` and `time` (of the answer), so that one that was
/// collected from many tills says where and when it was given.
QJsonObject withOrigin(QJsonObject object, const QDateTime &time = QDateTime::currentDateTime());

/// What every JSON form is printed by: the object with its origin, control and invisible characters
/// in the escapes of JSON, and a line end.
QByteArray jsonAnswer(const QJsonObject &object, JsonForm form,
                      const QDateTime &time = QDateTime::currentDateTime());

/// A time in the JSON form: ISO 8601 in the till's zone, with the offset; null for none.
QJsonValue jsonTime(const QDateTime &time);

} // namespace queuectl
