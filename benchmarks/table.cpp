#include "benchmarks/table.h"

#include "rig/mariadbserver.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr int bodyBytes = 400;

/// Types that take their body as an object; the others take text.
const QStringList objectTypes{u"customeraddress"_s, u"nochange"_s, u"winelabbonus"_s};

/// A body that all chosen types accept, padded to `bodyBytes`.
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

    QString database() const override { return u"SQLite"_s; }

    void clear() override
    {
        table.reset();
        for (const QString &file : {path, path + u"-wal"_s, path + u"-shm"_s})
            QFile::remove(file);
        table = std::make_unique<rig::MessageTable>(rig::DatabasePlace{.file = path});
        table->createTables(rig::Durability::OfTills);
    }

    /// SQLite plans without statistics, as on a till.
    void analyze() override {}
    QString settings() const override { return u"[database]\nname = %1\n"_s.arg(path); }
    QStringList bareLoopArguments() const override { return {u"sqlite"_s, path}; }

protected:
    void settle() override { table->query(u"PRAGMA wal_checkpoint(TRUNCATE)"_s); }

private:
    const QString path;
};

class MariaDbTable final : public Table
{
public:
    explicit MariaDbTable(const QString &folder)
        : server(rig::Durability::OfTills, folder)
    {
        table = std::make_unique<rig::MessageTable>(rig::DatabasePlace{
            .driver = u"QMYSQL"_s, .socket = server.socket(), .user = u"root"_s});
    }

    QString database() const override { return u"MariaDB"_s; }
    void clear() override { table->query(u"TRUNCATE message"_s); }
    void analyze() override { table->query(u"ANALYZE TABLE message"_s); }
    QString settings() const override { return server.settings(); }
    QStringList bareLoopArguments() const override
    {
        return {u"mariadb"_s, server.socket(), server.user(), server.password()};
    }

protected:
    void settle() override {}

private:
    rig::MariaDbServer server;
};

} // namespace

void Table::fill(const QStringList &types, int rows, int receiverPort)
{
    const int before = table->lastId();
    // In one transaction; each round copies the rows added so far.
    table->query(u"BEGIN"_s);
    const auto first = static_cast<int>(std::min<qsizetype>(types.size(), rows));
    for (int i = 0; i < first; ++i) {
        rig::TableRow row;
        row.type = types.at(i);
        row.body = body(types.at(i), receiverPort);
        table->put(row);
    }
    for (int there = first; there < rows; there *= 2)
        table->query(
            u"INSERT INTO message (type, body) SELECT type, body FROM message "
            "WHERE messageid > ? ORDER BY messageid LIMIT %1"_s.arg(std::min(there, rows - there)),
            {before});
    table->query(u"COMMIT"_s);
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
