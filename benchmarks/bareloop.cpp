// The lower limit on this machine. Reads the oldest row of a type, posts it over one kept-alive
// connection and deletes it, until the table is empty or COUNT messages were sent. The database has
// the service's settings, the requests its headers. There is no log, no polling and no check of the
// reply.
//
// queue-bareloop sqlite FILE TYPES COUNT
// queue-bareloop mariadb SOCKET USER PASSWORD TYPES COUNT
//
// TYPES are comma-separated; each has a thread with its own connection, and COUNT messages. With
// "gate-" before the database, the threads delete their rows in common transactions, through the
// service's own gate. With "qt-" before it, statements go through Qt's driver as in the service,
// which shows the driver's share of the service's time.
//
// Runs until SIGTERM, so that its processor time can be read. Then prints the number of deletions
// that failed because of a lock; their messages are sent again.

#include "shared/core/writegate.h"

#include <curl/curl.h>
#include <mysql.h>
#include <sqlite3.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr auto readStatement = "SELECT messageid, type, body, cardnumber, statuscode FROM message "
                               "WHERE type = ? AND messageid > -1 ORDER BY messageid asc LIMIT 1";
constexpr auto removeStatement = "DELETE FROM message WHERE messageid = ?";
constexpr auto beginStatement = "BEGIN IMMEDIATE";
constexpr auto commitStatement = "COMMIT";

[[noreturn]] void fail(const char *what, const char *why)
{
    std::fprintf(stderr, "queue-bareloop: %s: %s\n", what, why);
    // Ends without destructors, because other threads are running.
    std::_Exit(1);
}

struct Row
{
    int id = 0;
    QByteArray body;
};

class Database
{
public:
    virtual ~Database() = default;
    /// False if there is no row.
    virtual bool read(Row &row) = 0;
    /// False if the database was locked.
    virtual bool remove(int id) = 0;
    /// In one transaction; false if none was removed.
    virtual bool removeAll(const std::vector<int> &) { return false; }
};

class Sqlite final : public Database
{
public:
    Sqlite(const std::string &path, const std::string &type)
    {
        if (sqlite3_open(":memory:", &database) != SQLITE_OK)
            fail("open", sqlite3_errmsg(database));
        sqlite3_busy_timeout(database, 5000);
        execute("ATTACH DATABASE '" + path + "' AS queues");
        execute("PRAGMA queues.journal_mode=WAL");
        execute("PRAGMA queues.synchronous=FULL");
        reading = prepare(readStatement);
        sqlite3_bind_text(reading, 1, type.c_str(), -1, SQLITE_TRANSIENT);
        removing = prepare(removeStatement);
        beginning = prepare(beginStatement);
        committing = prepare(commitStatement);
    }
    ~Sqlite() override
    {
        for (sqlite3_stmt *statement : {reading, removing, beginning, committing})
            sqlite3_finalize(statement);
        sqlite3_close(database);
    }

    bool read(Row &row) override
    {
        const bool isThere = sqlite3_step(reading) == SQLITE_ROW;
        if (isThere) {
            row.id = sqlite3_column_int(reading, 0);
            row.body = QByteArray(static_cast<const char *>(sqlite3_column_blob(reading, 2)),
                                  sqlite3_column_bytes(reading, 2));
        }
        sqlite3_reset(reading);
        return isThere;
    }
    bool remove(int id) override
    {
        sqlite3_bind_int(removing, 1, id);
        return step(removing);
    }
    bool removeAll(const std::vector<int> &ids) override
    {
        if (!step(beginning))
            return false;
        for (const int id : ids) {
            if (!remove(id))
                fail("delete", "locked within a transaction");
        }
        return step(committing) || (fail("commit", sqlite3_errmsg(database)), false);
    }

private:
    void execute(const std::string &statement)
    {
        if (sqlite3_exec(database, statement.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
            fail(statement.c_str(), sqlite3_errmsg(database));
    }
    bool step(sqlite3_stmt *statement)
    {
        const int result = sqlite3_step(statement);
        if (result != SQLITE_DONE && result != SQLITE_BUSY)
            fail(sqlite3_sql(statement), sqlite3_errmsg(database));
        sqlite3_reset(statement);
        return result == SQLITE_DONE;
    }
    sqlite3_stmt *prepare(const char *text)
    {
        sqlite3_stmt *statement = nullptr;
        if (sqlite3_prepare_v3(database, text, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr)
            != SQLITE_OK)
            fail(text, sqlite3_errmsg(database));
        return statement;
    }

    sqlite3 *database = nullptr;
    sqlite3_stmt *reading = nullptr;
    sqlite3_stmt *removing = nullptr;
    sqlite3_stmt *beginning = nullptr;
    sqlite3_stmt *committing = nullptr;
};

class MariaDb final : public Database
{
public:
    MariaDb(const char *socket, const char *user, const char *password, const std::string &type)
        : type(type)
        , database(mysql_init(nullptr))
    {
        if (!mysql_real_connect(database, nullptr, user, password, "queues", 0, socket, 0))
            fail("connect", mysql_error(database));
        mysql_set_character_set(database, "utf8mb4");
        reading = prepare(readStatement);
        removing = prepare(removeStatement);
        bindText(typeBinding, this->type.data(), this->type.size());
        check(reading, mysql_stmt_bind_param(reading, &typeBinding));
        bindNumber(idBinding, id);
        check(removing, mysql_stmt_bind_param(removing, &idBinding));
        bindNumber(columns[0], id);
        for (int i : {1, 2, 3, 4})
            bindText(columns[i], texts[i - 1].data(), texts[i - 1].size());
        columns[2].length = &bodyLength;
        check(reading, mysql_stmt_bind_result(reading, columns));
    }
    ~MariaDb() override
    {
        mysql_stmt_close(reading);
        mysql_stmt_close(removing);
        mysql_close(database);
    }

    bool read(Row &row) override
    {
        check(reading, mysql_stmt_execute(reading) != 0);
        const bool isThere = mysql_stmt_fetch(reading) == 0;
        if (isThere) {
            row.id = id;
            row.body = QByteArray(texts[1].data(), static_cast<int>(bodyLength));
        }
        mysql_stmt_free_result(reading);
        return isThere;
    }
    bool remove(int rowId) override
    {
        id = rowId;
        check(removing, mysql_stmt_execute(removing) != 0);
        return true;
    }

private:
    static void check(MYSQL_STMT *statement, bool isBad)
    {
        if (isBad)
            fail("statement", mysql_stmt_error(statement));
    }
    MYSQL_STMT *prepare(const char *text)
    {
        MYSQL_STMT *statement = mysql_stmt_init(database);
        check(statement, mysql_stmt_prepare(statement, text, std::char_traits<char>::length(text)));
        return statement;
    }
    static void bindNumber(MYSQL_BIND &binding, int &number)
    {
        binding.buffer_type = MYSQL_TYPE_LONG;
        binding.buffer = &number;
    }
    static void bindText(MYSQL_BIND &binding, char *text, std::size_t size)
    {
        binding.buffer_type = MYSQL_TYPE_STRING;
        binding.buffer = text;
        binding.buffer_length = static_cast<unsigned long>(size);
    }

    std::string type;
    MYSQL *const database;
    MYSQL_STMT *reading = nullptr;
    MYSQL_STMT *removing = nullptr;
    int id = 0;
    unsigned long bodyLength = 0;
    std::string texts[4] = {std::string(64, ' '), std::string(4096, ' '), std::string(128, ' '),
                            std::string(255, ' ')};
    MYSQL_BIND typeBinding = {};
    MYSQL_BIND idBinding = {};
    MYSQL_BIND columns[5] = {};
};

class QtDriver final : public Database
{
public:
    QtDriver(const QString &driver, const QStringList &arguments, const QString &type)
        : database(QSqlDatabase::addDatabase(driver, type))
    {
        const bool isServer = driver != u"QSQLITE";
        database.setDatabaseName(isServer ? u"queues"_s : u":memory:"_s);
        if (isServer) {
            database.setConnectOptions(u"UNIX_SOCKET="_s + arguments.at(0));
            database.setUserName(arguments.at(1));
            database.setPassword(arguments.at(2));
        }
        if (!database.open())
            fail("open", qPrintable(database.lastError().text()));
        reading = QSqlQuery(database);
        removing = QSqlQuery(database);
        if (!isServer) {
            execute(u"ATTACH DATABASE '%1' AS queues"_s.arg(arguments.at(0)));
            execute(u"PRAGMA queues.journal_mode=WAL"_s);
            execute(u"PRAGMA queues.synchronous=FULL"_s);
        }
        reading.setForwardOnly(true);
        reading.prepare(QString::fromLatin1(readStatement));
        removing.prepare(QString::fromLatin1(removeStatement));
        reading.bindValue(0, type);
        transaction = QSqlQuery(database);
    }

    bool read(Row &row) override
    {
        check(reading.exec(), reading);
        const bool isThere = reading.next();
        if (isThere) {
            row.id = reading.value(0).toInt();
            row.body = reading.value(2).toByteArray();
        }
        reading.finish();
        return isThere;
    }
    bool remove(int id) override
    {
        removing.bindValue(0, id);
        return isDone(removing.exec(), removing);
    }
    bool removeAll(const std::vector<int> &ids) override
    {
        if (!isDone(transaction.exec(QString::fromLatin1(beginStatement)), transaction))
            return false;
        for (const int id : ids) {
            removing.bindValue(0, id);
            check(removing.exec(), removing);
        }
        check(transaction.exec(QString::fromLatin1(commitStatement)), transaction);
        return true;
    }

private:
    static void check(bool isGood, const QSqlQuery &query)
    {
        if (!isGood)
            fail("statement", qPrintable(query.lastError().text()));
    }
    static bool isDone(bool isGood, const QSqlQuery &query)
    {
        const QString busy = QString::number(SQLITE_BUSY);
        check(isGood || query.lastError().nativeErrorCode() == busy, query);
        return isGood;
    }
    void execute(const QString &statement)
    {
        check(removing.exec(statement), removing);
        removing.finish();
    }

    QSqlDatabase database;
    QSqlQuery reading;
    QSqlQuery removing;
    QSqlQuery transaction;
};

size_t ignoreReply(char *, size_t size, size_t count, void *)
{
    return size * count;
}

QByteArray content(const QJsonValue &body)
{
    return body.isObject() ? QJsonDocument(body.toObject()).toJson(QJsonDocument::Compact)
                           : body.toString().toUtf8();
}

void post(CURL *client, const QJsonObject &message)
{
    const QByteArray url = message[u"url"_s].toString().toUtf8();
    const QByteArray body = content(message[u"body"_s]);
    curl_slist *headers = nullptr;
    const QJsonObject names = message[u"headers"_s].toObject();
    for (auto it = names.begin(); it != names.end(); ++it)
        headers = curl_slist_append(
            headers, (it.key() + u": "_s + it.value().toString()).toUtf8().constData());
    curl_easy_setopt(client, CURLOPT_URL, url.constData());
    curl_easy_setopt(client, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(client, CURLOPT_POSTFIELDS, body.constData());
    curl_easy_setopt(client, CURLOPT_POSTFIELDSIZE, long{static_cast<int>(body.size())});
    curl_easy_setopt(client, CURLOPT_TIMEOUT, long{message[u"timeout"_s].toInt()});
    const CURLcode code = curl_easy_perform(client);
    if (code != CURLE_OK)
        fail(url.constData(), curl_easy_strerror(code));
    long status = 0;
    curl_easy_getinfo(client, CURLINFO_RESPONSE_CODE, &status);
    if (status != 200)
        fail(url.constData(), "unexpected status");
    curl_slist_free_all(headers);
}

struct Place
{
    bool isGated = false;
    bool isQt = false;
    std::string kind;
    QStringList arguments;
};

std::unique_ptr<Database> connect(const Place &place, const QString &type)
{
    const QStringList &with = place.arguments;
    const std::string name = type.toStdString();
    if (place.isQt)
        return std::make_unique<QtDriver>(place.kind == "sqlite" ? u"QSQLITE"_s : u"QMYSQL"_s, with,
                                          type);
    if (place.kind == "sqlite")
        return std::make_unique<Sqlite>(with.at(0).toStdString(), name);
    return std::make_unique<MariaDb>(qPrintable(with.at(0)), qPrintable(with.at(1)),
                                     qPrintable(with.at(2)), name);
}

std::atomic<bool> isStopped = false;
std::atomic<int> failures = 0;
WriteGate gate;

void drain(const Place &place, const QString &type, int count)
{
    const std::unique_ptr<Database> database = connect(place, type);
    CURL *client = curl_easy_init();
    curl_easy_setopt(client, CURLOPT_USERAGENT, "queue/" QUEUE_VERSION);
    curl_easy_setopt(client, CURLOPT_WRITEFUNCTION, ignoreReply);
    curl_easy_setopt(client, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(client, CURLOPT_PROXY, "");

    const auto remove = [&](int id) {
        if (!place.isGated)
            return database->remove(id);
        const auto turn =
            gate.remove(id, [&](const std::vector<int> &ids) { return database->removeAll(ids); });
        return !turn || database->remove(id);
    };
    Row row;
    for (int left = count; !isStopped && left > 0 && database->read(row); --left) {
        post(client, QJsonDocument::fromJson(row.body).object());
        failures += remove(row.id) ? 0 : 1;
    }
    curl_easy_cleanup(client);
}

/// Removes `prefix` if `text` begins with it.
bool takePrefix(std::string &text, const std::string &prefix)
{
    const bool isThere = text.starts_with(prefix);
    if (isThere)
        text.erase(0, prefix.size());
    return isThere;
}

} // namespace

int main(int argc, char **argv)
{
    Place place;
    place.kind = argc > 1 ? argv[1] : "";
    place.isGated = takePrefix(place.kind, "gate-");
    place.isQt = takePrefix(place.kind, "qt-");
    const int expected = place.kind == "sqlite" ? 5 : 7;
    if ((place.kind != "sqlite" && place.kind != "mariadb") || argc != expected)
        fail("usage", "queue-bareloop [gate-][qt-]sqlite FILE TYPES COUNT | "
                      "[qt-]mariadb SOCKET USER PASSWORD TYPES COUNT");
    // Blocked in all threads; main() waits for the signal.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);

    const QCoreApplication application(argc, argv);
    place.arguments = QCoreApplication::arguments().sliced(2);
    const int count = place.arguments.takeLast().toInt();
    const QStringList types = place.arguments.takeLast().split(u',');
    curl_global_init(CURL_GLOBAL_DEFAULT);
    mysql_library_init(0, nullptr, nullptr);
    std::vector<std::thread> threads;
    for (const QString &type : types)
        threads.emplace_back([&place, type, count] { drain(place, type, count); });

    int signal = 0;
    sigwait(&signals, &signal);
    isStopped = true;
    for (std::thread &thread : threads)
        thread.join();
    std::printf("%d\n", failures.load());
    curl_global_cleanup();
    return 0;
}
