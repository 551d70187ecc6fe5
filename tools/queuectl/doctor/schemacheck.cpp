#include "tools/queuectl/doctor/checks.h"

#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/sqlcolumn.h"
#include "tools/queuectl/text.h"

#include <QSqlDatabase>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

struct Table
{
    QString name;
    QStringList columns;
    QStringList indexes;
};

QStringList missing(const QStringList &wanted, const QStringList &present)
{
    QStringList result;
    for (const QString &name : wanted) {
        if (!present.contains(name, Qt::CaseInsensitive))
            result.append(name);
    }
    return result;
}

void examineTable(const QSqlDatabase &connection, const Table &table, Findings &findings)
{
    const bool isFile = !databaseFile().isEmpty();
    const QStringList columns =
        isFile ? columnOf(connection, u"PRAGMA queues.table_info(%1)"_s.arg(table.name), 1)
               : columnOf(connection, u"SHOW COLUMNS FROM %1"_s.arg(table.name), 0);
    const QStringList indexes =
        isFile ? columnOf(connection, u"PRAGMA queues.index_list(%1)"_s.arg(table.name), 1)
               : columnOf(connection, u"SHOW INDEX FROM %1"_s.arg(table.name), 2);
    if (columns.isEmpty()) {
        findings.error(text("there is no table %1", "нет таблицы %1").arg(table.name));
        return;
    }
    const QStringList noColumns = missing(table.columns, columns);
    if (!noColumns.isEmpty())
        findings.error(text("table %1 lacks the columns %2", "в таблице %1 нет столбцов %2")
                           .arg(table.name, noColumns.join(u", "_s)));
    const QStringList noIndexes = missing(table.indexes, indexes);
    if (!noIndexes.isEmpty())
        findings.warn(
            text(
                "table %1 lacks the indexes %2, a long queue will be slow (see the schema in packaging/sql)",
                "в таблице %1 нет индексов %2, длинная очередь будет медленной (схема в packaging/sql)")
                .arg(table.name, noIndexes.join(u", "_s)));
}

/// On a server, rows of one type are stored together.
void examineKey(const QSqlDatabase &connection, Findings &findings)
{
    const QStringList key =
        columnOf(connection,
                 u"SHOW INDEX FROM message WHERE Key_name = 'PRIMARY' AND Seq_in_index = 1"_s, 4);
    if (!key.isEmpty() && key != QStringList{u"type"_s})
        findings.warn(text(
            "the key of table message does not begin with the type, waiting rows of one type slow all others (docs/operations.md, database set-up, has the statement)",
            "ключ таблицы message не начинается с типа, ожидающие строки одного типа замедляют все остальные (команда в docs/operations.ru.md, настройка базы данных)"));
}

/// Columns that are compared as a whole must not ignore letter case or trailing blanks; the body,
/// which is searched for marks, must not ignore letter case.
void examineCollation(const QSqlDatabase &connection, const QString &table,
                      const QString &comparedColumns, Findings &findings)
{
    // A column of bytes has no collation, and compares correctly.
    const QString condition =
        u"FROM information_schema.columns WHERE table_schema = DATABASE() AND table_name = '%1' "
        "AND collation_name IS NOT NULL AND ((column_name IN (%2) AND collation_name NOT IN "
        "('utf8mb4_nopad_bin', 'utf8mb4_0900_bin')) OR (column_name = 'body' AND "
        "collation_name NOT LIKE '%bin')) ORDER BY ordinal_position"_s.arg(table, comparedColumns);
    const QStringList columns = columnOf(connection, u"SELECT column_name "_s + condition, 0);
    if (columns.isEmpty())
        return;
    QStringList collations = columnOf(connection, u"SELECT collation_name "_s + condition, 0);
    collations.removeDuplicates();
    const bool isMariaDb =
        columnOf(connection, u"SELECT VERSION()"_s, 0).join(QString()).contains(u"MariaDB"_s);
    const QString schemaName = columnOf(connection, u"SELECT DATABASE()"_s, 0).join(QString());
    const QString statement =
        u"ALTER TABLE %1.%2 CONVERT TO CHARACTER SET utf8mb4 COLLATE %3;"_s.arg(
            schemaName, table, isMariaDb ? u"utf8mb4_nopad_bin"_s : u"utf8mb4_0900_bin"_s);
    findings.warn(
        text(
            "texts in %1 of table %2 compare by %3, which treats different texts as equal (blanks at the end, perhaps letter case); an account with the right ALTER runs, while the till is idle: %4",
            "тексты в %1 таблицы %2 сравниваются по %3, разные тексты считаются одинаковыми (пробелы в конце, возможно регистр); в простое кассы под учётной записью с правом ALTER: %4")
            .arg(columns.join(u", "_s), table, collations.join(u", "_s), statement));
}

} // namespace

QList<Check> examineSchema(const QSqlDatabase &connection)
{
    const Table tables[] = {
        {u"message"_s,
         {u"messageid"_s, u"type"_s, u"body"_s, u"cardnumber"_s, u"statuscode"_s,
          u"creationtime"_s},
         {u"message_type"_s, u"message_card"_s, u"message_creationtime"_s}},
        {u"documentcard"_s,
         {u"id"_s, u"chequenumber"_s, u"cardnumber"_s, u"operationid"_s, u"operationinfo"_s},
         {u"documentcard_cheque"_s}},
    };
    Findings findings(u"database"_s);
    for (const Table &table : tables)
        examineTable(connection, table, findings);
    if (databaseFile().isEmpty()) {
        examineKey(connection, findings);
        examineCollation(connection, u"message"_s, u"'type', 'cardnumber'"_s, findings);
        examineCollation(connection, u"documentcard"_s, u"'chequenumber', 'cardnumber'"_s,
                         findings);
    }
    if (findings.checks.isEmpty())
        findings.ok(text("tables, columns and indexes are all there",
                         "таблицы, столбцы и индексы на месте"));
    return findings.checks;
}

} // namespace queuectl
