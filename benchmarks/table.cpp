#include "benchmarks/table.h"

#include "benchmarks/statistics.h"

#include <mysql.h>
#include <sqlite3.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

constexpr int bodyBytes = 400;
constexpr int runs = 11;

/// A server leaves gaps between the ids of rows that were copied, so these cannot be told by their number.
const QString lastIdStatement = u"SELECT COALESCE(MAX(messageid), 0) FROM message"_s;

const QString anyRowStatement = u"SELECT 1 FROM message WHERE type = '%1' LIMIT 1"_s;

/// These take their body as an object, the others as text.
const QStringList objectTypes{u"customeraddress"_s, u"nochange"_s, u"winelabbonus"_s};

/// What all the chosen types understand, filled up to `bodyBytes`.
QString body(const QString &type, int receiverPort)
{
    const auto withFilling = [&](const QString &filling) {
        const QJsonObject document{{u"filling"_s, filling}};
        const QJsonValue content = objectTypes.contains(type) ? QJsonValue(document) : filling;
        return QJsonDocument(
                   QJsonObject{
                       {u"url"_s, u"http://127.0.0.1:%1/%2"_s.arg(receiverPort).arg(type)},
                       {u"headers"_s, QJsonObject{{u"Content-Type"_s, u"application/json"_s},
                                                  {u"X-Shop"_s, u"0042"_s}}},
                       {u"body"_s, content},
                       {u"timeout"_s, 5},
                   })
            .toJson(QJsonDocument::Compact);
    };
    const auto rest = bodyBytes - withFilling(QString()).size();
    return QString::fromUtf8(withFilling(QString(rest, u'x')));
}

class SqliteTable final : public Table
{
public:
    explicit SqliteTable(const QString &folder)
        : path(folder + u"/queues.db"_s)
    {
        clear();
    }
    ~SqliteTable() override { sqlite3_close(connection); }

    QString database() const override { return u"SQLite"_s; }

    void clear() override
    {
        sqlite3_close(connection);
        for (const QString &file : {path, path + u"-wal"_s, path + u"-shm"_s})
            QFile::remove(file);
        QFile schema(QStringLiteral(QUEUE_SOURCE_DIR "/packaging/sql/sqlite.sql"));
        if (!schema.open(QIODevice::ReadOnly))
            fail(u"%1 cannot be read"_s.arg(schema.fileName()));
        if (sqlite3_open(path.toUtf8().constData(), &connection) != SQLITE_OK)
            fail(QString::fromUtf8(sqlite3_errmsg(connection)));
        sqlite3_busy_timeout(connection, 5000);
        execute(u"PRAGMA journal_mode=WAL"_s);
        execute(QString::fromUtf8(schema.readAll()));
    }

    /// Plans without counting, as on a till.
    void analyze() override {}
    int count() override { return rows(u"SELECT COUNT(*) FROM message"_s).first().toInt(); }
    bool has(const QString &type) override { return !rows(anyRowStatement.arg(type)).isEmpty(); }

    int lastId() override { return rows(lastIdStatement).first().toInt(); }

    QStringList plan(const QString &statement) override
    {
        return rows(u"EXPLAIN QUERY PLAN "_s + statement, 3);
    }

    double milliseconds(const QString &statement) override
    {
        return median(runs, [&] { rows(statement); });
    }

    QString settings() const override { return u"[database]\nname = %1\n"_s.arg(path); }
    QStringList bareLoopArguments() const override { return {u"sqlite"_s, path}; }

protected:
    void execute(const QString &statement) override
    {
        if (sqlite3_exec(connection, statement.toUtf8().constData(), nullptr, nullptr, nullptr)
            != SQLITE_OK)
            fail(QString::fromUtf8(sqlite3_errmsg(connection)));
    }
    void settle() override { execute(u"PRAGMA wal_checkpoint(TRUNCATE)"_s); }

private:
    /// One column of every row.
    QStringList rows(const QString &text, int column = 0)
    {
        QStringList values;
        sqlite3_stmt *statement = nullptr;
        if (sqlite3_prepare_v2(connection, text.toUtf8().constData(), -1, &statement, nullptr)
            != SQLITE_OK)
            fail(QString::fromUtf8(sqlite3_errmsg(connection)));
        while (sqlite3_step(statement) == SQLITE_ROW)
            values.append(QString::fromUtf8(
                reinterpret_cast<const char *>(sqlite3_column_text(statement, column))));
        sqlite3_finalize(statement);
        return values;
    }

    const QString path;
    sqlite3 *connection = nullptr;
};

class MariaDbTable final : public Table
{
public:
    explicit MariaDbTable(const QString &folder)
        : server(rig::MariaDbServer::Durability::OfTills, folder)
        , connection(mysql_init(nullptr))
    {
        if (!mysql_real_connect(connection, nullptr, "root", nullptr, "queues", 0,
                                server.socket().toUtf8().constData(), CLIENT_MULTI_STATEMENTS))
            failOnServer();
        // As the service's own sessions have it.
        execute(u"SET SESSION sql_mode = REPLACE(@@SESSION.sql_mode, 'ONLY_FULL_GROUP_BY', '')"_s);
    }
    ~MariaDbTable() override { mysql_close(connection); }

    QString database() const override { return u"MariaDB"_s; }
    void clear() override { execute(u"TRUNCATE message"_s); }
    void analyze() override { rows(u"ANALYZE TABLE message"_s); }
    int count() override { return rows(u"SELECT COUNT(*) FROM message"_s).first().toInt(); }
    bool has(const QString &type) override { return !rows(anyRowStatement.arg(type)).isEmpty(); }
    int lastId() override { return rows(lastIdStatement).first().toInt(); }
    QStringList plan(const QString &statement) override { return rows(u"EXPLAIN "_s + statement); }
    double milliseconds(const QString &statement) override
    {
        return median(runs, [&] { rows(statement); });
    }
    QString settings() const override { return server.settings(); }
    QStringList bareLoopArguments() const override
    {
        return {u"mariadb"_s, server.socket(), server.user(), server.password()};
    }

protected:
    void execute(const QString &statement) override { rows(statement); }
    void settle() override {}

private:
    /// Every row of the last statement, its columns parted by a blank.
    QStringList rows(const QString &text)
    {
        QStringList values;
        const QByteArray script = text.toUtf8();
        if (mysql_real_query(connection, script.constData(),
                             static_cast<unsigned long>(script.size()))
            != 0)
            failOnServer();
        int next = 0;
        do {
            values.clear();
            MYSQL_RES *result = mysql_store_result(connection);
            if (!result)
                continue;
            while (const MYSQL_ROW row = mysql_fetch_row(result)) {
                QStringList columns;
                for (unsigned i = 0; i < mysql_num_fields(result); ++i)
                    columns.append(row[i] ? QString::fromUtf8(row[i]) : u"-"_s);
                values.append(columns.join(u' '));
            }
            mysql_free_result(result);
        } while ((next = mysql_next_result(connection)) == 0);
        if (next > 0)
            failOnServer();
        return values;
    }

    [[noreturn]] void failOnServer() { fail(QString::fromUtf8(mysql_error(connection))); }

    rig::MariaDbServer server;
    MYSQL *const connection;
};

} // namespace

void Table::fill(const QStringList &types, int rows, int receiverPort)
{
    const int before = lastId();
    // In one transaction, each round copying what was added so far.
    QString script = u"BEGIN;"_s;
    const auto first = static_cast<int>(std::min<qsizetype>(types.size(), rows));
    for (int i = 0; i < first; ++i)
        script += u"INSERT INTO message (type, body) VALUES ('%1', '%2');"_s.arg(
            types.at(i), body(types.at(i), receiverPort));
    for (int there = first; there < rows; there *= 2)
        script +=
            u"INSERT INTO message (type, body) SELECT type, body FROM message WHERE messageid > %1 ORDER BY messageid LIMIT %2;"_s
                .arg(before)
                .arg(std::min(there, rows - there));
    execute(script + u"COMMIT;"_s);
    settle();
}

std::unique_ptr<Table> sqliteTable(const QString &folder)
{
    QDir().mkpath(folder);
    return std::make_unique<SqliteTable>(folder);
}

std::unique_ptr<Table> mariaDbTable(const QString &folder)
{
    QDir().mkpath(folder);
    return std::make_unique<MariaDbTable>(folder);
}
