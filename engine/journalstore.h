#pragma once

#include "engine/journalbatch.h"

#include <QString>

#include <array>
#include <chrono>
#include <memory>

class JournalConnection;

/// How much the journal keeps.
struct JournalLimits
{
    qint64 rows = 200'000;
    std::chrono::days age{30};
};

/// The SQLite file in which the service keeps what became of each message. The first write opens
/// it, and the one after a fault opens it again.
///
/// Thread: the one that makes the first write.
class JournalStore
{
public:
    explicit JournalStore(const QString &path);
    ~JournalStore();
    JournalStore(const JournalStore &) = delete;
    JournalStore &operator=(const JournalStore &) = delete;

    /// Writes all of the batch or none of it. Throws JournalFault, also when another program has
    /// had the file locked for a second.
    void write(const JournalBatch &batch);
    /// Removes some of the rows that are older than `limits.age` before `now`, or too many. Never
    /// takes long. True: there are more. Throws JournalFault.
    bool prune(const JournalLimits &limits, const QDateTime &now);
    /// Gives a damaged file another name, and the files beside it. The name; empty when that has
    /// failed.
    QString putAside();
    /// Leaves a file without a write-ahead log, which a reader can open that may write nothing
    /// beside it.
    void close();

private:
    /// Tells a file from another one of the same name.
    struct Identity
    {
        quint64 device = 0;
        quint64 inode = 0;
        bool operator==(const Identity &) const = default;
    };
    struct Statements;

    void open();
    void createFile() const;
    void createTables();
    void reopenIfReplaced();
    /// Closes after a fault, when nothing more can be done on the connection.
    void drop();
    void noteIdentities();
    static Identity identityOf(const QString &path);
    void giveBackPages();
    void writeMessage(const TriedMessage &tried);
    void writeType(const QString &type, const TypeTally &tally);
    template <typename Work>
    void inTransaction(const Work &work);

    const QString path;
    std::unique_ptr<JournalConnection> connection;
    std::unique_ptr<Statements> statements;
    Identity identity;
    /// Of the write-ahead log and its index.
    std::array<Identity, 2> companions = {};
    /// No row has a message with a greater number.
    int highestMessageId = 0;
    qint64 rows = 0;
    qint64 addedSincePruning = 0;
};
