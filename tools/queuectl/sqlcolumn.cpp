#include "tools/queuectl/sqlcolumn.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QVariant>

namespace queuectl {

QStringList columnOf(const QSqlDatabase &connection, const QString &statement, int column)
{
    QStringList values;
    QSqlQuery query(connection);
    if (!query.exec(statement))
        return values;
    while (query.next())
        values.append(query.value(column).toString());
    return values;
}

} // namespace queuectl
