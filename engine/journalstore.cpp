#include "engine/journalstore.h"

#include "engine/journalconnection.h"
#include "shared/core/sqlitefilelock.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr int schemaVersion = 1;
/// Members of the group may only read the journal.
constexpr mode_t fileMode = 0640;
constexpr auto busyTimeout = std::chrono::seconds(1);
/// Small, because a till has little memory and nearly all writes go to the ends of the table and
/// its indexes.
constexpr int cacheKibibytes = 256;
constexpr int ordinaryLogBytes = 4 * 1024 * 1024;
/// SQLite deletes this number of rows in a few milliseconds.
constexpr qint64 rowsPerPruning = 500;
/// The limit of rows removes kept messages last. It searches for other messages only among this
/// number of the oldest rows.
constexpr qint64 rowsLookedAt = 4 * rowsPerPruning;
/// The number of pages by which the file shrinks in one step, and of free pages that it may keep.
constexpr qint64 pagesPerStep = 200;
constexpr qint64 freePages = 1000;
/// If the id of a finished message appears again within this time, its row could not be deleted.
/// Later it is another message: the till has recreated its table.
constexpr auto longestRepeat = std::chrono::hours(24);

constexpr const char *schema[] = {
    "CREATE TABLE outcome ("
    " number INTEGER PRIMARY KEY,"
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
    // A delivered message costs it nothing.
    "CREATE INDEX outcome_kept ON outcome (type, last) WHERE verdict = 'kept'",
    "CREATE TABLE total (type TEXT, verdict TEXT, kind TEXT, count INTEGER NOT NULL,"
    " PRIMARY KEY (type, verdict, kind))",
    "CREATE TABLE streak (type TEXT PRIMARY KEY, lastDelivered INTEGER, failingSince INTEGER)",
    "CREATE TABLE fact (name TEXT, subject TEXT, value TEXT, time INTEGER,"
    " PRIMARY KEY (name, subject))",
};

// A row without a reference, from an attempt that sent nothing, belongs to the message as well.
constexpr char updateStatement[] =
    "UPDATE outcome SET verdict = ?, kind = ?, status = ?, text = ?,"
    " attempts = attempts + ?, last = ?, milliseconds = ?,"
    " reference = CASE reference WHEN '' THEN ? ELSE reference END"
    " WHERE number = (SELECT MAX(number) FROM outcome WHERE messageid = ? AND type = ?"
    " AND card = ? AND (reference IN (?, '') OR ? = '')"
    " AND (verdict = 'kept' OR last > ?))";
constexpr char insertStatement[] =
    "INSERT INTO outcome (messageid, type, card, reference, verdict, kind, status, text,"
    " attempts, first, last, milliseconds) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
constexpr char totalStatement[] =
    "INSERT INTO total (type, verdict, kind, count) VALUES (?, ?, ?, ?)"
    " ON CONFLICT (type, verdict, kind) DO UPDATE SET count = count + excluded.count";
constexpr char streakStatement[] =
    "INSERT INTO streak (type, lastDelivered, failingSince) VALUES (?, ?, ?)"
    " ON CONFLICT (type) DO UPDATE SET"
    " lastDelivered = CASE excluded.lastDelivered WHEN 0 THEN lastDelivered"
    " ELSE excluded.lastDelivered END,"
    " failingSince = ";
constexpr char endsStreak[] = "excluded.failingSince";
constexpr char prolongsStreak[] =
    "CASE failingSince WHEN 0 THEN excluded.failingSince ELSE failingSince END";
constexpr char factStatement[] =
    "INSERT INTO fact (name, subject, value, time) VALUES (?, ?, ?, ?)"
    " ON CONFLICT (name, subject) DO UPDATE SET value = excluded.value, time = excluded.time";
constexpr char oldestStatement[] =
    "DELETE FROM outcome WHERE number IN"
    " (SELECT number FROM outcome WHERE last < ? ORDER BY last LIMIT ?)";
// In the order of insertion, not by time: after the clock was set back, the newest rows have the
// smallest times.
constexpr char surplusStatement[] = "DELETE FROM outcome WHERE number IN (SELECT number FROM"
                                    " (SELECT number, verdict FROM outcome ORDER BY number LIMIT ?)"
                                    " ORDER BY verdict = 'kept', number LIMIT ?)";

} // namespace

/// The prepared statements; the tables must exist.
struct JournalStore::Statements
{
    explicit Statements(JournalConnection &connection)
        : update(connection, updateStatement)
        , insert(connection, insertStatement)
        , total(connection, totalStatement)
        , success(connection, QByteArray(streakStatement) + endsStreak)
        , failure(connection, QByteArray(streakStatement) + prolongsStreak)
        , fact(connection, factStatement)
        , oldest(connection, oldestStatement)
        , surplus(connection, surplusStatement)
    {
    }

    JournalConnection::Statement update;
    JournalConnection::Statement insert;
    JournalConnection::Statement total;
    JournalConnection::Statement success;
    JournalConnection::Statement failure;
    JournalConnection::Statement fact;
    JournalConnection::Statement oldest;
    JournalConnection::Statement surplus;
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
            statements->fact.execute(fact.name, fact.subject, fact.value,
                                     fact.time.toMSecsSinceEpoch());
        }
    });
}

bool JournalStore::prune(const JournalLimits &limits, const QDateTime &now)
{
    if (!connection)
        open();
    // In a busy hour, pruning must keep up with the new rows.
    const qint64 most = rowsPerPruning + std::exchange(addedSincePruning, 0);
    qint64 removed = 0;
    inTransaction([&] {
        const qint64 oldestKept =
            now.toMSecsSinceEpoch() - std::chrono::milliseconds(limits.age).count();
        removed = statements->oldest.execute(oldestKept, most);
        const qint64 tooMany = std::min(most, rows - removed - limits.rows);
        if (tooMany > 0)
            removed += statements->surplus.execute(tooMany + rowsLookedAt, tooMany);
        // Readers must know that the journal no longer has every message.
        if (removed > 0)
            statements->fact.execute("pruned"_L1, ""_L1, ""_L1, now.toMSecsSinceEpoch());
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
    const qint64 spare = connection->run("PRAGMA freelist_count") - freePages;
    if (spare <= 0)
        return;
    connection->run(u"PRAGMA incremental_vacuum(%1)"_s.arg(std::min(spare, pagesPerStep)));
}

QString JournalStore::putAside()
{
    drop();
    const QString kept = SqliteFileLock::keptName(path, u"damaged"_s);
    if (!QFile::rename(path, kept))
        return {};
    // They may contain the only undamaged rows.
    for (const QString &ending : SqliteFileLock::companions())
        QFile::rename(path + ending, kept + ending);
    return kept;
}

void JournalStore::close()
{
    if (!connection)
        return;
    statements.reset();
    try {
        connection->run("PRAGMA journal_mode = DELETE");
    } catch (const JournalFault &) {
        // Another program reads the file, which is harmless.
    }
    drop();
}

void JournalStore::open()
{
    createFile();
    connection = std::make_unique<JournalConnection>(path, busyTimeout);
    try {
        const qint64 version = connection->run("PRAGMA user_version");
        if (version > schemaVersion)
            throw JournalFault(u"файл создан более новой версией службы"_s, false);
        // Creating a file syncs several times, and the deliveries wait for the same disk. If a
        // power cut leaves it incomplete, nothing is lost: it is empty, and the next start renames
        // it.
        if (version == 0) {
            connection->run("PRAGMA synchronous = OFF");
            // Takes effect only before the first table. Later it would only write the file's first
            // page, and sync it.
            connection->run("PRAGMA auto_vacuum = INCREMENTAL");
        }
        connection->run("PRAGMA journal_mode = WAL");
        connection->run(u"PRAGMA cache_size = -%1"_s.arg(cacheKibibytes));
        connection->run(u"PRAGMA journal_size_limit = %1"_s.arg(ordinaryLogBytes));
        if (version == 0)
            createTables();
        // A power cut loses the last seconds and does not damage the file.
        connection->run("PRAGMA synchronous = NORMAL");
        statements = std::make_unique<Statements>(*connection);
        highestMessageId = static_cast<int>(connection->run("SELECT MAX(messageid) FROM outcome"));
        rows = connection->run("SELECT COUNT(*) FROM outcome");
    } catch (const JournalFault &) {
        drop();
        throw;
    }
    noteIdentities();
}

/// SQLite would create a file that every account may read.
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
        // Other accounts may write into the folder, and a link would make the service write another
        // file.
        if (::lstat(name.constData(), &status) != 0 || !S_ISREG(status.st_mode))
            throw JournalFault(u"это не обычный файл"_s, false);
        return;
    }
    struct stat folder = {};
    if (::stat(QFile::encodeName(QFileInfo(path).path()).constData(), &folder) == 0) {
        // If this fails, the file is like one that root has created by hand.
        [[maybe_unused]] const int result = ::fchown(
            file, ::geteuid() == 0 ? folder.st_uid : static_cast<uid_t>(-1), folder.st_gid);
    }
    ::close(file);
}

void JournalStore::createTables()
{
    inTransaction([&] {
        for (const char *statement : schema)
            connection->run(statement);
        connection->run(u"PRAGMA user_version = %1"_s.arg(schemaVersion));
    });
}

/// Nothing can read what is written into a deleted file.
void JournalStore::reopenIfReplaced()
{
    if (identityOf(path) == identity)
        return;
    drop();
    // SQLite finds these files by name and would apply them to the new file.
    const QStringList endings = SqliteFileLock::companions();
    for (qsizetype i = 0; i < endings.size(); ++i) {
        if (identityOf(path + endings[i]) == companions.at(i))
            QFile::remove(path + endings[i]);
    }
}

void JournalStore::drop()
{
    statements.reset();
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
    const QLatin1StringView verdict = nameOf(outcome.verdict);
    const QLatin1StringView kind = nameOf(outcome.kind);
    const qint64 last = outcome.begun.toMSecsSinceEpoch();
    const qint64 milliseconds = outcome.took.count();
    if (outcome.id <= highestMessageId) {
        const qint64 former = last - std::chrono::milliseconds(longestRepeat).count();
        const qint64 updated = statements->update.execute(
            verdict, kind, outcome.status, outcome.text, tried.attempts, last, milliseconds,
            outcome.reference, outcome.id, outcome.type, outcome.card, outcome.reference,
            outcome.reference, former);
        if (updated > 0)
            return;
    }
    statements->insert.execute(outcome.id, outcome.type, outcome.card, outcome.reference, verdict,
                               kind, outcome.status, outcome.text, tried.attempts,
                               tried.first.toMSecsSinceEpoch(), last, milliseconds);
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
                statements->total.execute(type, nameOf(static_cast<Verdict>(verdict)),
                                          nameOf(static_cast<http::FailureKind>(kind)), count);
            }
        }
    }
    JournalConnection::Statement &streak =
        tally.isFinishing ? statements->success : statements->failure;
    streak.execute(type, tally.lastDelivered, tally.failingSince);
}

/// A fault closes the connection, which rolls the transaction back.
template <typename Work>
void JournalStore::inTransaction(const Work &work)
{
    try {
        connection->run("BEGIN IMMEDIATE");
        work();
        connection->run("COMMIT");
    } catch (const JournalFault &) {
        drop();
        throw;
    }
}
