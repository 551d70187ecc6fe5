// What the machine allows: reads the oldest row of a type, posts it over one kept-alive connection and
// deletes it, until there is none. The database has the settings of the service, the request its
// headers; there is no log, no polling and no judgement.
//
// queue-bareloop DATABASE TYPE

#include <curl/curl.h>
#include <sqlite3.h>

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>
#include <cstdlib>
#include <string>

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void fail(const char *what, const char *why)
{
    std::fprintf(stderr, "queue-bareloop: %s: %s\n", what, why);
    std::exit(1);
}

void execute(sqlite3 *database, const std::string &statement)
{
    if (sqlite3_exec(database, statement.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        fail(statement.c_str(), sqlite3_errmsg(database));
}

sqlite3 *openDatabase(const std::string &path)
{
    sqlite3 *database = nullptr;
    if (sqlite3_open(":memory:", &database) != SQLITE_OK)
        fail("open", sqlite3_errmsg(database));
    sqlite3_busy_timeout(database, 5000);
    execute(database, "ATTACH DATABASE '" + path + "' AS queues");
    execute(database, "PRAGMA queues.journal_mode=WAL");
    execute(database, "PRAGMA queues.synchronous=FULL");
    return database;
}

sqlite3_stmt *prepare(sqlite3 *database, const char *text)
{
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v3(database, text, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr)
        != SQLITE_OK)
        fail(text, sqlite3_errmsg(database));
    return statement;
}

size_t ignoreReply(char *, size_t size, size_t count, void *)
{
    return size * count;
}

void post(CURL *client, const QJsonObject &message)
{
    const QByteArray url = message[u"url"_s].toString().toUtf8();
    const QByteArray body = message[u"body"_s].toString().toUtf8();
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

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3)
        fail("usage", "queue-bareloop DATABASE TYPE");

    sqlite3 *database = openDatabase(argv[1]);
    sqlite3_stmt *read =
        prepare(database, "SELECT messageid, type, body, cardnumber, statuscode FROM message "
                          "WHERE type = ? AND messageid > -1 ORDER BY messageid asc LIMIT 1");
    sqlite3_bind_text(read, 1, argv[2], -1, SQLITE_STATIC);
    sqlite3_stmt *remove = prepare(database, "DELETE FROM message WHERE messageid = ?");

    curl_global_init(CURL_GLOBAL_DEFAULT);
    CURL *client = curl_easy_init();
    curl_easy_setopt(client, CURLOPT_USERAGENT, "queue/" QUEUE_VERSION);
    curl_easy_setopt(client, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(client, CURLOPT_WRITEFUNCTION, ignoreReply);
    curl_easy_setopt(client, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(client, CURLOPT_PROXY, "");

    while (sqlite3_step(read) == SQLITE_ROW) {
        const int id = sqlite3_column_int(read, 0);
        const QByteArray body(static_cast<const char *>(sqlite3_column_blob(read, 2)),
                              sqlite3_column_bytes(read, 2));
        sqlite3_reset(read);

        post(client, QJsonDocument::fromJson(body).object());

        sqlite3_bind_int(remove, 1, id);
        if (sqlite3_step(remove) != SQLITE_DONE)
            fail("delete", sqlite3_errmsg(database));
        sqlite3_reset(remove);
    }

    curl_easy_cleanup(client);
    curl_global_cleanup();
    sqlite3_finalize(read);
    sqlite3_finalize(remove);
    sqlite3_close(database);
    return 0;
}
