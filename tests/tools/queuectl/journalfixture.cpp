#include "tests/tools/queuectl/journalfixture.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

using namespace Qt::StringLiterals;

namespace {

const QStringList schema{
    u"PRAGMA journal_mode = WAL"_s,
    u"PRAGMA user_version = 1"_s,
    u"CREATE TABLE outcome (number INTEGER PRIMARY KEY, messageid INTEGER NOT NULL, "
    "type TEXT NOT NULL, card TEXT NOT NULL, reference TEXT NOT NULL, verdict TEXT NOT NULL, "
    "kind TEXT NOT NULL, status INTEGER NOT NULL, text TEXT NOT NULL, attempts INTEGER NOT NULL, "
    "first INTEGER NOT NULL, last INTEGER NOT NULL, milliseconds INTEGER NOT NULL)"_s,
    u"CREATE INDEX outcome_message ON outcome (messageid)"_s,
    u"CREATE INDEX outcome_last ON outcome (last)"_s,
    u"CREATE INDEX outcome_kept ON outcome (type, last) WHERE verdict = 'kept'"_s,
    u"CREATE TABLE total (type TEXT, verdict TEXT, kind TEXT, count INTEGER NOT NULL, PRIMARY KEY "
    "(type, verdict, kind))"_s,
    u"CREATE TABLE streak (type TEXT PRIMARY KEY, lastDelivered INTEGER, failingSince INTEGER)"_s,
    u"CREATE TABLE fact (name TEXT, subject TEXT, value TEXT, time INTEGER, PRIMARY KEY (name, "
    "subject))"_s,
};

qint64 timeAgo(int seconds)
{
    return QDateTime::currentDateTime().addSecs(-seconds).toMSecsSinceEpoch();
}

/// The service writes 0 for never.
qint64 timeAgoOrNever(int seconds)
{
    return seconds == 0 ? 0 : timeAgo(seconds);
}

QSqlQuery executed(const QString &connection, const QString &statement, const QVariantList &values)
{
    QSqlQuery query(QSqlDatabase::database(connection));
    query.prepare(statement);
    for (const QVariant &value : values)
        query.addBindValue(value);
    if (!query.exec())
        qFatal("%s: %s", qPrintable(statement), qPrintable(query.lastError().text()));
    return query;
}

QString orEmpty(const QString &text)
{
    return text.isNull() ? u""_s : text;
}

} // namespace

JournalFixture::JournalFixture(const QString &root)
    : path(root + u"/tallocash/cash/queue/journal.db"_s)
{
    QDir().mkpath(QFileInfo(path).path());
    open();
    for (const QString &statement : schema)
        run(statement);
}

JournalFixture::~JournalFixture()
{
    close();
}

void JournalFixture::put(const Record &record)
{
    const qint64 last = timeAgo(record.secondsAgo);
    run(u"INSERT INTO outcome (messageid, type, card, reference, verdict, kind, status, text, "
        "attempts, first, last, milliseconds) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"_s,
        {record.id, record.type, orEmpty(record.card), orEmpty(record.reference), record.verdict,
         record.kind, record.status, orEmpty(record.text), record.attempts,
         last - qint64(record.spanSeconds) * 1000, last, record.milliseconds});
}

void JournalFixture::streak(const QString &type, int deliveredSecondsAgo, int failingSecondsAgo)
{
    run(u"INSERT OR REPLACE INTO streak VALUES (?, ?, ?)"_s,
        {type, timeAgoOrNever(deliveredSecondsAgo), timeAgoOrNever(failingSecondsAgo)});
}

void JournalFixture::fact(const QString &factName, const QString &subject, const QString &value,
                          int secondsAgo)
{
    run(u"INSERT OR REPLACE INTO fact VALUES (?, ?, ?, ?)"_s,
        {factName, subject, value, timeAgo(secondsAgo)});
}

void JournalFixture::run(const QString &statement, const QVariantList &values)
{
    if (name.isEmpty())
        open();
    executed(name, statement, values);
}

QStringList JournalFixture::plan(const QString &statement, const QVariantList &values)
{
    if (name.isEmpty())
        open();
    QStringList details;
    QSqlQuery query = executed(name, u"EXPLAIN QUERY PLAN "_s + statement, values);
    while (query.next())
        details.append(query.value(3).toString());
    return details;
}

void JournalFixture::close()
{
    if (name.isEmpty())
        return;
    QSqlDatabase::removeDatabase(name);
    name.clear();
}

void JournalFixture::open()
{
    static int number = 0;
    name = u"journal-fixture-%1"_s.arg(++number);
    QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, name);
    database.setDatabaseName(path);
    if (!database.open())
        qFatal("%s: %s", qPrintable(path), qPrintable(database.lastError().text()));
}
