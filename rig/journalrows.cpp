#include "rig/journalrows.h"

#include "rig/error.h"

#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

using namespace Qt::StringLiterals;

namespace rig {

namespace {

const QString journalConnection = u"rig-journal"_s;

QList<JournalRow> rowsOf(const QSqlDatabase &database)
{
    QSqlQuery query(database);
    if (!query.exec(u"SELECT messageid, type, verdict, kind, status, text, reference, attempts "
                    "FROM outcome ORDER BY number"_s))
        throw Error(u"%1: %2"_s.arg(database.databaseName(), query.lastError().text()));
    QList<JournalRow> rows;
    while (query.next())
        rows.append({query.value(0).toInt(), query.value(1).toString(), query.value(2).toString(),
                     query.value(3).toString(), query.value(4).toInt(), query.value(5).toString(),
                     query.value(6).toString(), query.value(7).toInt()});
    return rows;
}

QStringList textsOf(const QSqlDatabase &database)
{
    QStringList texts;
    const QStringList tables = database.tables();
    for (const QString &table : tables) {
        QSqlQuery query(database);
        if (!query.exec(u"SELECT * FROM "_s + table))
            throw Error(u"%1: %2"_s.arg(database.databaseName(), query.lastError().text()));
        while (query.next()) {
            QStringList values{table};
            for (int i = 0; query.value(i).isValid(); ++i)
                values.append(query.value(i).toString());
            texts.append(values.join(u' '));
        }
    }
    return texts;
}

/// Removes its connection in the destructor, also after an exception.
class JournalConnection
{
public:
    explicit JournalConnection(const QString &file)
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, journalConnection);
        database.setDatabaseName(file);
        database.setConnectOptions(u"QSQLITE_BUSY_TIMEOUT=30000"_s);
        database.open();
    }
    ~JournalConnection() { QSqlDatabase::removeDatabase(journalConnection); }
    JournalConnection(const JournalConnection &) = delete;
    JournalConnection &operator=(const JournalConnection &) = delete;
};

} // namespace

QList<JournalRow> readJournal(const QString &file)
{
    if (!QFile::exists(file))
        return {};
    const JournalConnection connection(file);
    return rowsOf(QSqlDatabase::database(journalConnection, false));
}

QStringList journalTexts(const QString &file)
{
    if (!QFile::exists(file))
        return {};
    const JournalConnection connection(file);
    return textsOf(QSqlDatabase::database(journalConnection, false));
}

} // namespace rig
