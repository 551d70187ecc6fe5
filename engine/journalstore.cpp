#include "engine/journalstore.h"

#include "shared/core/databasevalues.h"
#include "shared/core/sqlitefilelock.h"

#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <initializer_list>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr int schemaVersion = 1;
/// Members of the group may read what became of a message, and change nothing.
constexpr mode_t fileMode = 0640;
constexpr auto busyTimeout = std::chrono::seconds(1);
/// A till has little memory, and nearly all writes are to the ends of the table and its indexes.
constexpr int cacheKibibytes = 256;
constexpr int ordinaryLogBytes = 4 * 1024 * 1024;
/// As many rows go in a few milliseconds.
constexpr qint64 rowsPerPruning = 500;
/// A message that stays is passed over by the limit of rows, and no further than this many rows are
/// looked at for others.
constexpr qint64 rowsLookedAt = 4 * rowsPerPruning;
/// Pages that the file gives back in one step, and how many free ones it may keep.
constexpr qint64 pagesPerStep = 200;
constexpr qint64 freePages = 1000;
/// A message that was finished with and comes again was not deleted: the service or the database
/// has failed. Later than this it is another one, of a table that the till has made again.
constexpr auto longestRepeat = std::chrono::hours(24);

// The primary result codes of SQLite.
constexpr int corruptCode = 11;
constexpr int notADatabaseCode = 26;
constexpr int primaryCodeMask = 0xff;

constexpr const char *schema[] = {
    "CREATE TABLE outcome ("
    " number INTEGER PRIMARY KEY AUTOINCREMENT,"
    " messageid INTEGER NOT NULL, type TEXT NOT NULL, card TEXT NOT NULL,"
    " reference TEXT NOT NULL,"
    " verdict TEXT NOT NULL,"
    " kind TEXT NOT NULL,"
    " status INTEGER NOT NULL,"
    " text TEXT NOT NULL,"
    " attempts INTEGER NOT NULL, first INTEGER NOT NULL, last INTEGER NOT NULL,"
    " milliseconds INTEGER NOT NULL)",
    "CREATE INDEX outcome_message ON outcome (messageid)",
    "CREATE INDEX outcome_last ON outcome (last)",
    "CREATE INDEX outcome_type ON outcome (type, last)",
    "CREATE TABLE total (type TEXT, verdict TEXT, kind TEXT, count INTEGER NOT NULL,"
    " PRIMARY KEY (type, verdict, kind))",
    "CREATE TABLE streak (type TEXT PRIMARY KEY, lastDelivered INTEGER, failingSince INTEGER)",
    "CREATE TABLE fact (name TEXT, subject TEXT, value TEXT, time INTEGER,"
    " PRIMARY KEY (name, subject))",
};

[[noreturn]] void failWith(const QSqlError &error, const QString &statement)
{
    const int code = error.nativeErrorCode().toInt() & primaryCodeMask;
    throw JournalFault(databaseErrorText(error, statement),
                       code == corruptCode || code == notADatabaseCode);
}

void execute(QSqlQuery &query, std::initializer_list<QVariant> values)
{
    int position = 0;
    for (const QVariant &value : values)
        query.bindValue(position++, value);
    if (!query.exec())
        failWith(query.lastError(), query.lastQuery());
}

/// A null text would be a NULL in the table.
QVariant textValue(const QString &text)
{
    return text.isNull() ? u""_s : text;
}

} // namespace

/// The connection and its statements, which end before it does.
struct JournalStore::Connection
{
    explicit Connection(const QString &path)
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, name);
        database.setDatabaseName(path);
        database.setConnectOptions(
            u"QSQLITE_BUSY_TIMEOUT=%1"_s.arg(std::chrono::milliseconds(busyTimeout).count()));
        if (!database.open()) {
            const QSqlError error = database.lastError();
            database = {};
            QSqlDatabase::removeDatabase(name);
            failWith(error, path);
        }
    }
    ~Connection()
    {
        for (QSqlQuery *query :
             {&update, &insert, &total, &success, &failure, &fact, &oldest, &surplus})
            *query = QSqlQuery(QSqlDatabase());
        QSqlDatabase::removeDatabase(name);
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    QSqlDatabase database() const { return QSqlDatabase::database(name, false); }

    /// Carries a statement out to its end. The first value of its first row, if it has one.
    QVariant run(const QString &statement) const
    {
        QSqlQuery query(database());
        query.setForwardOnly(true);
        if (!query.exec(statement))
            failWith(query.lastError(), statement);
        const QVariant first = query.next() ? query.value(0) : QVariant();
        while (query.next()) {
        }
        return first;
    }

    void prepare(QSqlQuery &query, const QString &statement) const
    {
        query = QSqlQuery(database());
        query.setForwardOnly(true);
        if (!query.prepare(statement))
            failWith(query.lastError(), statement);
    }

    void prepareAll()
    {
        // The number of a message that was tried before a reference could be read belongs to it as
        // well.
        prepare(update,
                u"UPDATE outcome SET verdict = ?, kind = ?, status = ?, text = ?,"
                " attempts = attempts + ?, last = ?, milliseconds = ?,"
                " reference = CASE reference WHEN '' THEN ? ELSE reference END"
                " WHERE number = (SELECT MAX(number) FROM outcome WHERE messageid = ? AND type = ?"
                " AND card = ? AND (reference IN (?, '') OR ? = '')"
                " AND (verdict = 'kept' OR last > ?))"_s);
        prepare(
            insert,
            u"INSERT INTO outcome (messageid, type, card, reference, verdict, kind, status, text,"
            " attempts, first, last, milliseconds) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"_s);
        prepare(
            total,
            u"INSERT INTO total (type, verdict, kind, count) VALUES (?, ?, ?, ?)"
            " ON CONFLICT (type, verdict, kind) DO UPDATE SET count = count + excluded.count"_s);
        const QString streak =
            u"INSERT INTO streak (type, lastDelivered, failingSince) VALUES (?, ?, ?)"
            " ON CONFLICT (type) DO UPDATE SET"
            " lastDelivered = CASE excluded.lastDelivered WHEN 0 THEN lastDelivered"
            " ELSE excluded.lastDelivered END,"
            " failingSince = "_s;
        prepare(success, streak + u"excluded.failingSince"_s);
        prepare(failure, streak
                             + u"CASE failingSince WHEN 0 THEN excluded.failingSince"
                               " ELSE failingSince END"_s);
        prepare(fact, u"INSERT INTO fact (name, subject, value, time) VALUES (?, ?, ?, ?)"
                      " ON CONFLICT (name, subject) DO UPDATE SET value = excluded.value,"
                      " time = excluded.time"_s);
        prepare(oldest, u"DELETE FROM outcome WHERE number IN"
                        " (SELECT number FROM outcome WHERE last < ? ORDER BY last LIMIT ?)"_s);
        // By their order and not by their times: after the clock was set back, the newest rows have
        // the smallest times.
        prepare(surplus, u"DELETE FROM outcome WHERE number IN (SELECT number FROM"
                         " (SELECT number, verdict FROM outcome ORDER BY number LIMIT ?)"
                         " ORDER BY verdict = 'kept', number LIMIT ?)"_s);
    }

    static QString nextName()
    {
        static std::atomic<int> count{0};
        return u"queue-journal-%1"_s.arg(++count);
    }

    const QString name = nextName();
    QSqlQuery update;
    QSqlQuery insert;
    QSqlQuery total;
    QSqlQuery success;
    QSqlQuery failure;
    QSqlQuery fact;
    QSqlQuery oldest;
    QSqlQuery surplus;
};

JournalStore::JournalStore(const QString &path)
    : path(path)
{
}

JournalStore::~JournalStore()
{
    close();
}

void JournalStore::write(const JournalBatch &batch)
{
    if (connection)
        reopenIfReplaced();
    if (!connection)
        open();
    inTransaction([&] {
        for (const TriedMessage &tried : batch.tried)
            writeMessage(tried);
        for (const auto &[type, tally] : batch.types.asKeyValueRange())
            writeType(type, tally);
        for (const Fact &fact : batch.facts) {
            execute(connection->fact, {fact.name, fact.subject, textValue(fact.value),
                                       fact.time.toMSecsSinceEpoch()});
        }
    });
}

bool JournalStore::prune(const JournalLimits &limits, const QDateTime &now)
{
    if (!connection)
        open();
    // As many as come in must go out in a busy hour, too.
    const qint64 most = rowsPerPruning + std::exchange(addedSincePruning, 0);
    qint64 removed = 0;
    inTransaction([&] {
        const qint64 oldestKept =
            now.toMSecsSinceEpoch() - std::chrono::milliseconds(limits.age).count();
        execute(connection->oldest, {oldestKept, most});
        removed = connection->oldest.numRowsAffected();
        const qint64 tooMany = std::min(most, rows - removed - limits.rows);
        if (tooMany > 0) {
            execute(connection->surplus, {tooMany + rowsLookedAt, tooMany});
            removed += connection->surplus.numRowsAffected();
        }
    });
    rows -= removed;
    if (removed == 0)
        return false;
    if (rows <= limits.rows)
        giveBackPages();
    return true;
}

void JournalStore::giveBackPages()
{
    const qint64 spare = connection->run(u"PRAGMA freelist_count"_s).toLongLong() - freePages;
    if (spare <= 0)
        return;
    inTransaction([&] {
        // The statement would give back more than one page if Qt's driver did not end it after its
        // first step.
        for (qint64 page = 0; page < std::min(spare, pagesPerStep); ++page)
            connection->run(u"PRAGMA incremental_vacuum(1)"_s);
    });
}

QString JournalStore::putAside()
{
    drop();
    const QString kept = SqliteFileLock::keptName(path, u"damaged"_s);
    if (!QFile::rename(path, kept))
        return {};
    // Their contents may be all that is sound.
    for (const QString &ending : SqliteFileLock::companions())
        QFile::rename(path + ending, kept + ending);
    return kept;
}

void JournalStore::close()
{
    if (!connection)
        return;
    // Fails while somebody reads, which does no harm.
    QSqlQuery(connection->database()).exec(u"PRAGMA journal_mode = DELETE"_s);
    drop();
}

void JournalStore::open()
{
    createFile();
    connection = std::make_unique<Connection>(path);
    try {
        // Counts in a new file alone, before its first table.
        connection->run(u"PRAGMA auto_vacuum = INCREMENTAL"_s);
        const int version = connection->run(u"PRAGMA user_version"_s).toInt();
        if (version > schemaVersion)
            throw JournalFault(u"файл создан более новой версией службы"_s, false);
        // Making a new file syncs several times, and the deliveries wait for the same disk. A file
        // that a power cut leaves half made holds nothing yet, and is put aside.
        if (version == 0)
            connection->run(u"PRAGMA synchronous = OFF"_s);
        connection->run(u"PRAGMA journal_mode = WAL"_s);
        connection->run(u"PRAGMA cache_size = -%1"_s.arg(cacheKibibytes));
        connection->run(u"PRAGMA journal_size_limit = %1"_s.arg(ordinaryLogBytes));
        if (version == 0)
            createTables();
        // After a power cut the last seconds are missing and the file is sound.
        connection->run(u"PRAGMA synchronous = NORMAL"_s);
        connection->prepareAll();
        highestMessageId = connection->run(u"SELECT MAX(messageid) FROM outcome"_s).toInt();
        rows = connection->run(u"SELECT COUNT(*) FROM outcome"_s).toLongLong();
    } catch (const JournalFault &) {
        drop();
        throw;
    }
    noteIdentities();
}

/// SQLite would make a file that everybody may read.
void JournalStore::createFile() const
{
    const QByteArray name = QFile::encodeName(path);
    const int file =
        ::open(name.constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, fileMode);
    if (file < 0) {
        struct stat status = {};
        const int reason = errno;
        if (reason != EEXIST)
            throw JournalFault(qt_error_string(reason), false);
        // Others may write into the folder. A link would have another file written.
        if (::lstat(name.constData(), &status) != 0 || !S_ISREG(status.st_mode))
            throw JournalFault(u"это не обычный файл"_s, false);
        return;
    }
    struct stat folder = {};
    if (::stat(QFile::encodeName(QFileInfo(path).path()).constData(), &folder) == 0) {
        // Failing that, it is as good as one that root has made by hand.
        [[maybe_unused]] const int result = ::fchown(
            file, ::geteuid() == 0 ? folder.st_uid : static_cast<uid_t>(-1), folder.st_gid);
    }
    ::close(file);
}

void JournalStore::createTables()
{
    inTransaction([&] {
        for (const char *statement : schema)
            connection->run(QString::fromLatin1(statement));
        connection->run(u"PRAGMA user_version = %1"_s.arg(schemaVersion));
    });
}

/// What is written into a deleted file nobody sees.
void JournalStore::reopenIfReplaced()
{
    if (identityOf(path) == identity)
        return;
    drop();
    // SQLite finds these by their names and would apply them to the file that is there now.
    const QStringList endings = SqliteFileLock::companions();
    for (qsizetype i = 0; i < endings.size(); ++i) {
        if (identityOf(path + endings[i]) == companions.at(i))
            QFile::remove(path + endings[i]);
    }
}

void JournalStore::drop()
{
    connection.reset();
}

void JournalStore::noteIdentities()
{
    identity = identityOf(path);
    const QStringList endings = SqliteFileLock::companions();
    for (qsizetype i = 0; i < endings.size(); ++i)
        companions.at(i) = identityOf(path + endings[i]);
}

JournalStore::Identity JournalStore::identityOf(const QString &path)
{
    struct stat status = {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return {};
    return {status.st_dev, status.st_ino};
}

void JournalStore::writeMessage(const TriedMessage &tried)
{
    const Outcome &outcome = tried.outcome;
    const QVariant card = textValue(outcome.card);
    const QVariant reference = textValue(outcome.reference);
    const QString verdict = nameOf(outcome.verdict);
    const QString kind = nameOf(outcome.kind);
    const qint64 last = outcome.begun.toMSecsSinceEpoch();
    const qint64 milliseconds = outcome.took.count();
    if (outcome.id <= highestMessageId) {
        const qint64 former = last - std::chrono::milliseconds(longestRepeat).count();
        execute(connection->update, {verdict, kind, outcome.status, textValue(outcome.text),
                                     tried.attempts, last, milliseconds, reference, outcome.id,
                                     outcome.type, card, reference, reference, former});
        if (connection->update.numRowsAffected() > 0)
            return;
    }
    execute(connection->insert, {outcome.id, outcome.type, card, reference, verdict, kind,
                                 outcome.status, textValue(outcome.text), tried.attempts,
                                 tried.first.toMSecsSinceEpoch(), last, milliseconds});
    highestMessageId = std::max(highestMessageId, outcome.id);
    ++rows;
    ++addedSincePruning;
}

void JournalStore::writeType(const QString &type, const TypeTally &tally)
{
    for (size_t verdict = 0; verdict < tally.counts.size(); ++verdict) {
        for (size_t kind = 0; kind < tally.counts[verdict].size(); ++kind) {
            const qint64 count = tally.counts[verdict][kind];
            if (count > 0) {
                execute(connection->total,
                        {type, QString(nameOf(static_cast<Verdict>(verdict))),
                         QString(nameOf(static_cast<http::FailureKind>(kind))), count});
            }
        }
    }
    execute(tally.isFinishing ? connection->success : connection->failure,
            {type, tally.lastDelivered, tally.failingSince});
}

/// A fault ends the connection, and with it the transaction.
template <typename Work>
void JournalStore::inTransaction(const Work &work)
{
    try {
        connection->run(u"BEGIN IMMEDIATE"_s);
        work();
        connection->run(u"COMMIT"_s);
    } catch (const JournalFault &) {
        drop();
        throw;
    }
}
