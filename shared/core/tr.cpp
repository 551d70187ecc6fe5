#include "shared/core/tr.h"

#include <QCoreApplication>

namespace tr {

Tr::Tr(const QString &text)
    : text(text)
{
}

Tr::Tr(const QString &key, const QString &ru)
    : key(key)
    , text(ru)
{
}

QString Tr::ru() const
{
    return text;
}

QString Tr::ui() const
{
    if (key.isEmpty())
        return text;
    const QByteArray id = key.toUtf8();
    const QString translated = QCoreApplication::translate("tr", id.constData());
    return translated == key ? text : translated;
}

bool Tr::isEmpty() const
{
    return text.isEmpty();
}

} // namespace tr
