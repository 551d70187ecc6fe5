#include "shared/core/databasestatements.h"

#include "shared/core/basicexception.h"
#include "shared/core/databasevalues.h"

#include <QSqlQuery>

using namespace Qt::StringLiterals;

void throwDatabaseError(const QString &what, const QSqlError &error)
{
    throw BasicException(u"%1: %2"_s.arg(what, databaseErrorText(error)));
}

void executeStatement(const QSqlDatabase &database, const QString &statement, const QString &what)
{
    QSqlQuery query(database);
    if (!query.exec(statement))
        throwDatabaseError(what, query.lastError());
}
