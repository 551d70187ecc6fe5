#include "shared/core/databasevalues.h"

#include <QSqlError>

using namespace Qt::StringLiterals;

QString databaseErrorText(const QSqlError &error, const QString &statement)
{
    const QString text = error.text();
    if (!text.trimmed().isEmpty())
        return text;
    QString known = u"драйвер базы данных не назвал причину"_s;
    if (!error.nativeErrorCode().isEmpty())
        known += u", код ошибки "_s + error.nativeErrorCode();
    if (!statement.isEmpty())
        known += u", запрос: "_s + statement;
    return known;
}

QDateTime databaseTime(const QVariant &value)
{
    const bool isText =
        value.typeId() == QMetaType::QString || value.typeId() == QMetaType::QByteArray;
    const QDateTime time =
        isText ? QDateTime::fromString(value.toString().trimmed(), Qt::ISODateWithMs)
               : value.toDateTime();
    if (!time.isValid())
        return QDateTime();
    return isText ? time.toLocalTime() : QDateTime(time.date(), time.time());
}
