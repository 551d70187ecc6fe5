#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>

/// The values that the keys have in the body of a message, in the order of the keys and with a
/// blank in between: what a person searches by. A key is a dotted path, as in `receipt.number`, and
/// goes on within a text that is JSON; a part of digits counts the elements of a list from 0, and
/// `*` means each element of a list or an object. What is not there is left out, and so are
/// objects. Card numbers are masked.
QString referenceOf(const QVariantMap &body, const QStringList &keys);

/// The same for a text from elsewhere, such as the path of an address.
QString referenceText(const QString &text);
