#pragma once

#include <QJsonValue>
#include <QString>
#include <QStringList>

namespace queuectl {

/// Whether a key of this name holds something that must not be shown, such as a password or a
/// token.
bool isSecretName(const QString &name);

/// The path of a member of the object at `path`: both with a dot between them; without a path, the
/// key.
QString memberPath(const QString &path, const QString &key);

/// `value` with `***` in place of every secret in it: members whose name is a secret's or one of
/// `further` (dotted paths from the top, too), passwords in addresses, and the same inside texts
/// that are JSON themselves.
QJsonValue masked(const QJsonValue &value, const QStringList &further = {});

/// Any text with the secrets masked that can be told in it: JSON objects, addresses, `name=value`
/// pairs.
QString maskedText(const QString &text);

/// The text with all but the last four digits of long numbers masked, as those of cards and
/// telephones.
QString withoutLongNumbers(const QString &text);

} // namespace queuectl
