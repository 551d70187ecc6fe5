#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>

/// The values of the keys in a message's body, in the order of the keys, separated by blanks:
/// people search for messages by them. A key is a dotted path, as in `receipt.number`, and
/// continues inside a string that is JSON. A number is an index into a list, from 0; `*` means each
/// element of a list or an object. Missing values and objects are left out. Card numbers are
/// masked.
QString referenceOf(const QVariantMap &body, const QStringList &keys);

/// The same cleaning for another text, such as the path of an address.
QString referenceText(const QString &text);
