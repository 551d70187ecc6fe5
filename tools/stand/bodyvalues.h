#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace stand {

/// A text, number or Boolean value in a body, as text, with its place: the path of a JSON member
/// (`order.state`, without indexes of arrays), or the name of an XML element, attribute or field of
/// a form.
struct BodyValue
{
    QString place;
    QString value;
};

/// The values of a JSON or XML body, or of a form, in their order.
QList<BodyValue> valuesIn(const QByteArray &body);

/// How many of the places of both bodies are common to them, from 0 to 1.
double likeness(const QByteArray &one, const QByteArray &other);

/// The JSON or XML body with another value at the place, wherever it has the place. A form is
/// returned unchanged.
QByteArray withValue(const QByteArray &body, const QString &place, const QString &value);

} // namespace stand
