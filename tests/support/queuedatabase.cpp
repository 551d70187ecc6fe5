#include "tests/support/queuedatabase.h"

#include "shared/core/config.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/singleton.h"

#include <QDir>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>

using namespace Qt::StringLiterals;

QueueDatabase::QueueDatabase()
    : formerRoot(qgetenv("QUEUE_ROOT"))
{
    qputenv("QUEUE_ROOT", root().toUtf8());
    setSettings(QString());
}

QueueDatabase::~QueueDatabase()
{
    const QStringList names = QSqlDatabase::connectionNames();
    for (const QString &name : names)
        Singleton<ConnectionFactory>::instance()->removeConnection(name);
    qputenv("QUEUE_ROOT", formerRoot);
}

void QueueDatabase::setSettings(const QString &text)
{
    till_.setSettings(text);
    Config::setConfigsPathList({QDir(till_.path(u"/tallocash/cash/conf"_s))}, {});
}

int QueueDatabase::put(const QString &type, const QString &body, const QString &cardNumber)
{
    query(u"INSERT INTO message (type, body, cardnumber, statuscode) VALUES (?, ?, ?, '')"_s,
          {type, body, cardNumber.isNull() ? u""_s : cardNumber});
    return query(u"SELECT MAX(messageid) FROM message"_s).value(0).value(0).toInt();
}

QList<int> QueueDatabase::ids(const QString &type)
{
    const QString condition = type.isEmpty() ? QString() : u"WHERE type = ? "_s;
    const QList<QVariantList> rows =
        query(u"SELECT messageid FROM message "_s + condition + u"ORDER BY messageid"_s,
              type.isEmpty() ? QVariantList{} : QVariantList{type});
    QList<int> result;
    for (const QVariantList &row : rows)
        result.append(row.value(0).toInt());
    return result;
}

QList<QVariantList> QueueDatabase::query(const QString &statement, const QVariantList &values)
{
    QSqlQuery query(Singleton<ConnectionFactory>::instance()->getConnection());
    query.prepare(statement);
    for (const QVariant &value : values)
        query.addBindValue(value);
    if (!query.exec())
        qFatal("%s: %s", qPrintable(statement), qPrintable(query.lastError().text()));
    QList<QVariantList> rows;
    while (query.next()) {
        QVariantList row;
        for (int column = 0; column < query.record().count(); ++column)
            row.append(query.value(column));
        rows.append(row);
    }
    return rows;
}
