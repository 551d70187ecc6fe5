#include "shared/core/serverlock.h"

#include <QCryptographicHash>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace serverlock {

namespace {

/// The server's limit for lock names.
constexpr qsizetype maxNameLength = 64;

/// A name that an administrator can read in the server's list of locks where possible. Lock names
/// are case-insensitive, types and schemas are not, so any other text is replaced by a digest.
QString nameOf(const QString &kind, const QString &text)
{
    static const QRegularExpression plain(uR"(\A[a-z0-9_/-]+\z)"_s);
    const QString name = kind + text;
    if (name.size() <= maxNameLength && plain.match(name).hasMatch())
        return name;
    const QByteArray digest = QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Sha256);
    return (kind + u'#' + QString::fromLatin1(digest.toHex())).left(maxNameLength);
}

} // namespace

QString serviceLock(const QString &schema)
{
    return nameOf(u"queue/service/"_s, schema);
}

QString typeLock(const QString &schema, const QString &type)
{
    return nameOf(u"queue/type/"_s, schema + u'/' + type);
}

} // namespace serverlock
