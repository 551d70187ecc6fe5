#include "tests/shared/core/anotherprogram.h"

#include "shared/core/basicexception.h"
#include "shared/core/config.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/paths.h"
#include "shared/core/singleton.h"

#include <QCoreApplication>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

int countRows()
{
    Config::setConfigsPathList(settingsFolders(), {});
    try {
        QSqlQuery query(Singleton<ConnectionFactory>::instance()->getConnection());
        const bool isRead = query.exec(u"SELECT COUNT(*) FROM message"_s) && query.next();
        std::printf("rows: %s\n",
                    qPrintable(isRead ? query.value(0).toString() : query.lastError().text()));
    } catch (const BasicException &exception) {
        std::printf("%s\n", qPrintable(exception.tr().ru()));
    }
    return 0;
}

int holdFile(const QString &path)
{
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s);
        database.setDatabaseName(path);
        if (!database.open() || !QSqlQuery(database).exec(u"SELECT * FROM message LIMIT 1"_s))
            return 1;
        std::puts("open");
        std::fflush(stdout);
        while (std::getchar() != EOF) {
        }
    }
    QSqlDatabase::removeDatabase(QLatin1StringView(QSqlDatabase::defaultConnection));
    return 0;
}

} // namespace

std::optional<int> anotherprogram::run(const QStringList &arguments)
{
    if (arguments.value(1) == count)
        return countRows();
    if (arguments.value(1) == countWithoutDrivers) {
        QCoreApplication::setLibraryPaths({});
        return countRows();
    }
    if (arguments.value(1) == hold)
        return holdFile(arguments.value(2));
    return std::nullopt;
}
