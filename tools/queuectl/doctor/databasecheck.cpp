#include "tools/queuectl/doctor/checks.h"

#include "shared/core/basicexception.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/databasesettings.h"
#include "shared/core/databasevalues.h"
#include "shared/core/singleton.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/openfiles.h"
#include "tools/queuectl/sqlcolumn.h"
#include "tools/queuectl/text.h"

#include <QFileInfo>
#include <QJsonObject>
#include <QMap>
#include <QSqlDatabase>
#include <QSqlQuery>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

void examineFile(const QSqlDatabase &connection, Findings &findings)
{
    const QStringList result = columnOf(connection, u"PRAGMA queues.quick_check(1)"_s, 0);
    if (result == QStringList{u"ok"_s})
        findings.ok(text("the file is sound", "файл цел"));
    else
        findings.error(
            text("the file is damaged: %1", "файл повреждён: %1").arg(result.join(u' ')));
}

void examineWriteAheadLog(Findings &findings)
{
    const QFileInfo log(databaseFile() + u"-wal"_s);
    if (log.size() <= largeLogBytes)
        return;
    findings.warn(
        text(
            "%1 has grown to %2 MiB: a program keeps a read transaction open; the file shrinks after that transaction has ended. Processes that have the database open: %3",
            "%1 вырос до %2 МиБ: какая-то программа держит транзакцию чтения; файл уменьшится, когда она завершится. База данных открыта процессами: %3")
            .arg(log.filePath(), QString::number(log.size() / 1024 / 1024),
                 usersOf({databaseFile(), log.filePath()}).toText()));
}

QList<Check> examineGrants(const QSqlDatabase &connection)
{
    Findings findings(u"rights"_s);
    const QString lines =
        columnOf(connection, u"SHOW GRANTS FOR CURRENT_USER"_s, 0).join(u'\n').toUpper();
    QStringList lacking;
    for (const QString &right : {u"SELECT"_s, u"INSERT"_s, u"UPDATE"_s, u"DELETE"_s}) {
        if (!lines.contains(right) && !lines.contains(u"ALL PRIVILEGES"_s))
            lacking.append(right);
    }
    if (lacking.isEmpty())
        findings.ok(text("the account on the server has the rights it needs",
                         "у учётной записи на сервере есть нужные права"));
    else
        findings.error(
            text("the account on the server lacks %1", "у учётной записи на сервере нет прав %1")
                .arg(lacking.join(u", "_s)));
    return findings.checks;
}

/// The package of a driver that is not installed; empty when it is installed or unknown.
QString missingPackage(const QString &driver)
{
    static const QMap<QString, QString> packages{{u"QSQLITE"_s, u"libqt6sql6-sqlite"_s},
                                                 {u"QMYSQL"_s, u"libqt6sql6-mysql"_s},
                                                 {u"QMARIADB"_s, u"libqt6sql6-mysql"_s}};
    return QSqlDatabase::isDriverAvailable(driver) ? QString() : packages.value(driver);
}

QDateTime newestRow(const QSqlDatabase &connection)
{
    QSqlQuery newest(connection);
    if (newest.exec(u"SELECT MAX(creationtime) FROM message"_s) && newest.next())
        return databaseTime(newest.value(0));
    return {};
}

} // namespace

DatabaseChecks examineDatabase()
{
    Findings findings(u"database"_s);
    const QString driver = settings::database::driver.value();
    const QString package = missingPackage(driver);
    if (!package.isEmpty()) {
        findings.error(
            text("the settings ask for the driver %1, which is not installed (apt install %2)",
                 "настройки требуют драйвер %1, он не установлен (apt install %2)")
                .arg(driver, package));
        return {findings.checks, {}};
    }
    const QString place = databasePlace().value(u"place"_s).toString();
    try {
        MessageRows();
    } catch (const BasicException &exception) {
        findings.error(exception.tr().ru());
        return {findings.checks, {}};
    }
    const QSqlDatabase connection = Singleton<ConnectionFactory>::instance()->getConnection();
    findings.ok(text("%1 answers", "%1 отвечает").arg(place));
    findings.checks += examineSchema(connection);
    if (databaseFile().isEmpty()) {
        findings.checks += examineGrants(connection);
    } else {
        examineFile(connection, findings);
        examineWriteAheadLog(findings);
    }
    return {findings.checks, newestRow(connection)};
}

} // namespace queuectl
