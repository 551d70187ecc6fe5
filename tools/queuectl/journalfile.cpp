#include "tools/queuectl/journalfile.h"

#include "engine/journalsettings.h"
#include "shared/core/databasevalues.h"
#include "shared/core/paths.h"
#include "tools/queuectl/fileaccess.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/masking.h"
#include "tools/queuectl/text.h"

#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int knownVersion = 1;
constexpr int busyTimeoutMs = 2000;
const QString entryColumns =
    u"number, messageid, type, card, reference, verdict, kind, status, text, attempts, first, last, milliseconds"_s;
/// The first moment of the year 10000.
constexpr qint64 endOfTimeMs = 253'402'300'800'000;

constexpr qint64 quarterMs = 15 * 60'000;

/// Primary result codes of SQLite.
enum SqliteCode
{
    Permission = 3,
    BusyFile = 5,
    LockedTable = 6,
    ReadOnly = 8,
    Corrupt = 11,
    CannotOpen = 14,
    Authorization = 23,
};

QDateTime timeOf(const QVariant &value)
{
    const qint64 milliseconds = value.toLongLong();
    if (milliseconds <= 0 || milliseconds >= endOfTimeMs)
        return {};
    return QDateTime::fromMSecsSinceEpoch(milliseconds);
}

JournalEntry entryAt(const QSqlQuery &query)
{
    JournalEntry entry;
    entry.number = query.value(0).toLongLong();
    entry.id = query.value(1).toInt();
    entry.type = query.value(2).toString();
    entry.card = query.value(3).toString();
    entry.reference = query.value(4).toString();
    entry.verdict = query.value(5).toString();
    entry.kind = query.value(6).toString();
    entry.status = query.value(7).toInt();
    entry.text = query.value(8).toString();
    entry.attempts = query.value(9).toInt();
    entry.first = timeOf(query.value(10));
    entry.last = timeOf(query.value(11));
    entry.milliseconds = query.value(12).toLongLong();
    return entry;
}

/// SQLite creates files beside the database even for reading, unless it is told that no program
/// writes (`immutable`). Without a write-ahead log that is true: the service has one as long as it
/// runs.
bool isAtRest(const QString &path)
{
    return !QFileInfo::exists(path + u"-shm"_s) && QFileInfo(path + u"-wal"_s).size() == 0;
}

QString uriOf(const QString &path, bool isImmutable)
{
    return u"file:"_s + QString::fromLatin1(QUrl::toPercentEncoding(path, "/"))
           + (isImmutable ? u"?immutable=1"_s : QString());
}

QString connectionName()
{
    static int number = 0;
    return u"queuectl-journal-%1"_s.arg(++number);
}

} // namespace

struct JournalFile::Connection
{
    ~Connection()
    {
        if (!name.isEmpty())
            QSqlDatabase::removeDatabase(name);
    }

    QString name;
    QString path;
    State state = State::Read;
    /// SQLite's texts for a damaged file.
    QString reason;
    bool isImmutable = false;
};

QJsonObject JournalEntry::toJson() const
{
    return {{u"id"_s, id},
            {u"type"_s, type},
            {u"card"_s, card},
            {u"reference"_s, reference},
            {u"verdict"_s, verdict},
            {u"kind"_s, kind},
            {u"status"_s, status},
            {u"text"_s, maskedText(text)},
            {u"attempts"_s, attempts},
            {u"first"_s, jsonTime(first)},
            {u"last"_s, jsonTime(last)},
            {u"milliseconds"_s, milliseconds}};
}

JournalStatement historyStatement(const JournalFilter &filter)
{
    QStringList conditions;
    QVariantList values;
    const auto where = [&](const QString &condition, const QVariant &value) {
        conditions.append(condition);
        values.append(value);
    };
    if (filter.id > 0)
        where(u"messageid = ?"_s, filter.id);
    // With an id, the plus keeps SQLite from scanning all messages of the type.
    if (!filter.type.isEmpty())
        where(filter.id > 0 ? u"+type = ?"_s : u"type = ?"_s, filter.type);
    const QString plus = filter.id > 0 ? u"+"_s : QString();
    if (filter.since.isValid())
        where(plus + u"last >= ?"_s, filter.since.toMSecsSinceEpoch());
    if (filter.until.isValid())
        where(plus + u"last < ?"_s, filter.until.toMSecsSinceEpoch());
    if (!filter.card.isEmpty()) {
        constexpr int shownDigits = 4;
        const QString end = filter.card.right(shownDigits);
        where(u"substr(card, -%1) = ?"_s.arg(end.size()), end);
    }
    if (!filter.reference.isEmpty())
        where(u"instr(reference, ?) > 0"_s, filter.reference);
    if (!filter.verdict.isEmpty())
        where(u"verdict = ?"_s, filter.verdict);
    values.append(filter.limit > 0 ? qint64(filter.limit) + 1 : -1);
    return {u"SELECT %1 FROM outcome%2 ORDER BY last DESC, number DESC LIMIT ?"_s.arg(
                entryColumns,
                conditions.isEmpty() ? QString() : u" WHERE "_s + conditions.join(u" AND "_s)),
            values};
}

JournalStatement endedStatement(const QDateTime &start)
{
    // The plus keeps SQLite from scanning the whole index by type.
    return {
        u"SELECT type, verdict, COUNT(*) FROM outcome WHERE last >= ? GROUP BY +type, +verdict"_s,
        {start.toMSecsSinceEpoch()}};
}

JournalStatement endedByTimeStatement(const QDateTime &start)
{
    return {u"SELECT type, verdict, last / %1, COUNT(*) FROM outcome WHERE last >= ? AND +verdict "
            "IN ('delivered', 'dropped') GROUP BY +type, +verdict, last / %1"_s.arg(quarterMs),
            {start.toMSecsSinceEpoch()}};
}

JournalStatement failedByTimeStatement(const QDateTime &start)
{
    return {
        u"SELECT type, 'failed', first / %1, COUNT(*) FROM outcome WHERE last >= ? AND first "
        ">= ? AND (attempts > 1 OR verdict = 'kept') GROUP BY +type, first / %1"_s.arg(quarterMs),
        {start.toMSecsSinceEpoch(), start.toMSecsSinceEpoch()}};
}

JournalStatement failedStatement(const QDateTime &start)
{
    return {u"SELECT type, first, last FROM outcome WHERE last >= ? AND CASE verdict WHEN "
            "'delivered' THEN attempts > 1 ELSE kind IN ('network', 'certificate', 'service') END "
            "ORDER BY +type, first"_s,
            {start.toMSecsSinceEpoch()}};
}

JournalStatement deliveriesStatement(const QDateTime &start)
{
    return {u"SELECT type, last FROM outcome WHERE last >= ? AND +verdict = 'delivered' ORDER BY "
            "last"_s,
            {start.toMSecsSinceEpoch()}};
}

JournalFile::JournalFile()
    : JournalFile(journalFile())
{
}

JournalFile::JournalFile(const QString &path)
    : connection(std::make_shared<Connection>())
{
    connection->path = path;
    switch (fileAccess(path)) {
    case FileAccess::Missing:
        connection->state = State::Missing;
        return;
    case FileAccess::Denied:
        connection->state = State::Denied;
        return;
    case FileAccess::Readable:
        break;
    }
    open(path);
}

void JournalFile::open(const QString &path)
{
    connection->name = connectionName();
    connection->isImmutable = isAtRest(path);
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, connection->name);
        database.setConnectOptions(
            u"QSQLITE_OPEN_READONLY;QSQLITE_OPEN_URI;QSQLITE_BUSY_TIMEOUT=%1"_s.arg(busyTimeoutMs));
        database.setDatabaseName(uriOf(path, connection->isImmutable));
        if (!database.open()) {
            connection->state = State::Denied;
            return;
        }
    }
    int version = 0;
    run({u"PRAGMA user_version"_s, {}}, [&version](const QSqlQuery &query) {
        version = query.value(0).toInt();
        return false;
    });
    if (connection->state == State::Read && version > knownVersion) {
        connection->state = State::Newer;
        return;
    }
    // A file that the service did not write lacks one of these.
    for (const QString &table : {u"outcome"_s, u"streak"_s, u"fact"_s})
        run({u"SELECT 1 FROM %1 LIMIT 1"_s.arg(table), {}},
            [](const QSqlQuery & /*query*/) { return false; });
}

JournalFile::State JournalFile::state() const
{
    return connection->state;
}

QString JournalFile::stateName() const
{
    switch (connection->state) {
    case State::Missing:
        return u"missing"_s;
    case State::Denied:
        return u"denied"_s;
    case State::Damaged:
        return u"damaged"_s;
    case State::Newer:
        return u"newer"_s;
    case State::Busy:
        return u"busy"_s;
    case State::Read:
        break;
    }
    return u"read"_s;
}

QString JournalFile::why() const
{
    switch (connection->state) {
    case State::Missing:
        return isEnabled()
                   ? text(
                         "There is no delivery journal yet; the service creates %1 at the first attempt.",
                         "Журнала доставки ещё нет; файл %1 служба создаёт при первой попытке.")
                         .arg(connection->path)
                   : text("There is no delivery journal: journal:enabled is off.",
                          "Журнала доставки нет: параметр journal:enabled выключен.");
    case State::Denied:
        return text(
                   "No rights: this account cannot read the delivery journal %1 (run queuectl as root or as a member of the group queue).",
                   "Нет прав: эта учётная запись не может читать журнал доставки %1 (запустите queuectl от root или от члена группы queue).")
            .arg(connection->path);
    case State::Damaged:
        return text(
                   "The delivery journal %1 cannot be read: %2. Messages are not affected; it may be deleted, the service begins a new one.",
                   "Журнал доставки %1 не читается: %2. Сообщения не затронуты; файл можно удалить, служба начнёт новый.")
            .arg(connection->path, connection->reason);
    case State::Newer:
        return text(
                   "The delivery journal %1 was written by a newer version of the service; use the queuectl of that version.",
                   "Журнал доставки %1 записан более новой версией службы; возьмите queuectl той же версии.")
            .arg(connection->path);
    case State::Busy:
        return text("The delivery journal %1 is locked by another program; try again.",
                    "Журнал доставки %1 занят другой программой; повторите позже.")
            .arg(connection->path);
    case State::Read:
        break;
    }
    return {};
}

QString JournalFile::path() const
{
    return connection->path;
}

bool JournalFile::isEnabled()
{
    return settings::journal::enabled.value();
}

void JournalFile::fail(const QSqlQuery &query)
{
    const QSqlError error = query.lastError();
    const int code = error.nativeErrorCode().toInt() & 0xff;
    switch (code) {
    case BusyFile:
    case LockedTable:
        connection->state = State::Busy;
        return;
    case Permission:
    case ReadOnly:
    case CannotOpen:
    case Authorization:
        connection->state = State::Denied;
        return;
    default:
        break;
    }
    // The service has been started since, and changes the file that this connection opened as
    // immutable.
    if (code == Corrupt && connection->isImmutable && !isAtRest(connection->path)) {
        connection->state = State::Busy;
        return;
    }
    connection->state = State::Damaged;
    connection->reason = databaseErrorText(error);
}

void JournalFile::run(const JournalStatement &statement,
                      const std::function<bool(QSqlQuery &)> &take)
{
    if (connection->state != State::Read)
        return;
    QSqlQuery query(QSqlDatabase::database(connection->name));
    query.setForwardOnly(true);
    if (!query.prepare(statement.text)) {
        fail(query);
        return;
    }
    for (const QVariant &value : statement.values)
        query.addBindValue(value);
    if (!query.exec()) {
        fail(query);
        return;
    }
    while (query.next()) {
        if (!take(query))
            return;
    }
    // An unreadable page ends the rows like the last row does.
    if (query.lastError().isValid())
        fail(query);
}

std::optional<JournalEntry> JournalFile::first(const JournalStatement &statement)
{
    std::optional<JournalEntry> entry;
    run(statement, [&entry](const QSqlQuery &query) {
        entry = entryAt(query);
        return false;
    });
    return entry;
}

void JournalFile::entries(const JournalFilter &filter,
                          const std::function<bool(const JournalEntry &)> &take)
{
    run(historyStatement(filter), [&take](const QSqlQuery &query) { return take(entryAt(query)); });
}

QList<JournalEntry> JournalFile::entries(const JournalFilter &filter)
{
    QList<JournalEntry> result;
    entries(filter, [&result](const JournalEntry &entry) {
        result.append(entry);
        return true;
    });
    return result;
}

QHash<int, JournalEntry> JournalFile::newest(const QString &type, const QList<int> &ids)
{
    QHash<int, JournalEntry> result;
    if (ids.isEmpty())
        return result;
    const QStringList marks(ids.size(), u"?"_s);
    JournalStatement statement{
        u"SELECT %1 FROM outcome WHERE messageid IN (%2) AND +type = ?"_s.arg(entryColumns,
                                                                              marks.join(u", "_s)),
        {}};
    for (const int id : ids)
        statement.values.append(id);
    statement.values.append(type);
    run(statement, [&result](const QSqlQuery &query) {
        const JournalEntry entry = entryAt(query);
        JournalEntry &known = result[entry.id];
        if (entry.number >= known.number)
            known = entry;
        return true;
    });
    return result;
}

std::optional<JournalEntry> JournalFile::lastKept(const QString &type)
{
    return first({u"SELECT %1 FROM outcome WHERE verdict = 'kept' AND type = ?"
                  " ORDER BY last DESC LIMIT 1"_s.arg(entryColumns),
                  {type}});
}

std::optional<JournalEntry> JournalFile::oldest()
{
    return first({u"SELECT %1 FROM outcome ORDER BY number LIMIT 1"_s.arg(entryColumns), {}});
}

std::optional<JournalEntry> JournalFile::latest()
{
    return first({u"SELECT %1 FROM outcome ORDER BY last DESC LIMIT 1"_s.arg(entryColumns), {}});
}

QList<JournalEntry> JournalFile::lastMade(int count)
{
    QList<JournalEntry> result;
    run({u"SELECT %1 FROM outcome ORDER BY number DESC LIMIT ?"_s.arg(entryColumns), {count}},
        [&result](const QSqlQuery &query) {
            result.append(entryAt(query));
            return true;
        });
    return result;
}

int JournalFile::count()
{
    int number = 0;
    run({u"SELECT COUNT(*) FROM outcome"_s, {}}, [&number](const QSqlQuery &query) {
        number = query.value(0).toInt();
        return false;
    });
    return number;
}

QHash<QString, Streak> JournalFile::streaks()
{
    QHash<QString, Streak> result;
    run({u"SELECT type, lastDelivered, failingSince FROM streak"_s, {}}, [&result](const QSqlQuery
                                                                                       &query) {
        result.insert(query.value(0).toString(), {timeOf(query.value(1)), timeOf(query.value(2))});
        return true;
    });
    return result;
}

QHash<QString, Ended> JournalFile::ended(const QDateTime &start)
{
    QHash<QString, Ended> result;
    run(endedStatement(start), [&result](const QSqlQuery &query) {
        const QString verdict = query.value(1).toString();
        const int count = query.value(2).toInt();
        if (verdict == u"delivered")
            result[query.value(0).toString()].delivered = count;
        else if (verdict == u"dropped")
            result[query.value(0).toString()].dropped = count;
        return true;
    });
    return result;
}

void JournalFile::countByTime(const QDateTime &start,
                              const std::function<void(const QuarterCount &)> &take)
{
    const auto read = [&take](const QSqlQuery &query) {
        const QString what = query.value(1).toString();
        QuarterCount count;
        count.type = query.value(0).toString();
        count.what = what == u"delivered" ? QuarterCount::What::Delivered
                     : what == u"dropped" ? QuarterCount::What::Dropped
                                          : QuarterCount::What::Failed;
        count.time = timeOf(query.value(2).toLongLong() * quarterMs);
        count.count = query.value(3).toInt();
        if (count.time.isValid())
            take(count);
        return true;
    };
    run(endedByTimeStatement(start), read);
    run(failedByTimeStatement(start), read);
}

void JournalFile::failed(const QDateTime &start,
                         const std::function<void(const QString &, const Attempted &)> &take)
{
    run(failedStatement(start), [&take](const QSqlQuery &query) {
        const Attempted attempted{timeOf(query.value(1)), timeOf(query.value(2))};
        if (attempted.first.isValid() && attempted.last.isValid())
            take(query.value(0).toString(), attempted);
        return true;
    });
}

void JournalFile::deliveries(const QDateTime &start,
                             const std::function<void(const QString &, const QDateTime &)> &take)
{
    run(deliveriesStatement(start), [&take](const QSqlQuery &query) {
        const QDateTime time = timeOf(query.value(1));
        if (time.isValid())
            take(query.value(0).toString(), time);
        return true;
    });
}

QList<Fact> JournalFile::facts(const QString &name)
{
    QList<Fact> result;
    run({u"SELECT name, subject, value, time FROM fact WHERE name = ? ORDER BY subject"_s, {name}},
        [&result](const QSqlQuery &query) {
            result.append({query.value(0).toString(), query.value(1).toString(),
                           query.value(2).toString(), timeOf(query.value(3))});
            return true;
        });
    return result;
}

QList<Total> JournalFile::totals()
{
    QList<Total> result;
    run({u"SELECT type, verdict, kind, count FROM total ORDER BY type, verdict, kind"_s, {}},
        [&result](const QSqlQuery &query) {
            result.append({query.value(0).toString(), query.value(1).toString(),
                           query.value(2).toString(), query.value(3).toLongLong()});
            return true;
        });
    return result;
}

bool JournalFile::isWhole()
{
    if (!isEnabled() || connection->state != State::Read)
        return false;
    const bool isPruned = !facts(u"pruned"_s).isEmpty();
    return connection->state == State::Read && !isPruned;
}

} // namespace queuectl
