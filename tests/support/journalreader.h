#pragma once

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>
#include <QStringList>

#include <atomic>

/// The rows of a statement on an SQLite file, each as its values with a blank in between. A
/// statement that fails gives one row, which says why.
inline QStringList rowsOf(const QString &path, const QString &statement)
{
    static std::atomic<int> count{0};
    const QString name = QStringLiteral("reader-%1").arg(++count);
    QStringList rows;
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        database.setDatabaseName(path);
        database.open();
        QSqlQuery query(database);
        if (!query.exec(statement))
            rows.append(query.lastError().text());
        while (query.next()) {
            QStringList values;
            for (int i = 0; query.value(i).isValid(); ++i)
                values.append(query.value(i).toString());
            rows.append(values.join(u' '));
        }
    }
    QSqlDatabase::removeDatabase(name);
    return rows;
}
