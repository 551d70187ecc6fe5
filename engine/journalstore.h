#pragma once

#include "engine/journalbatch.h"

#include <QString>

#include <array>
#include <chrono>
#include <memory>

class JournalConnection;

/// The limits of the journal.
struct JournalLimits
{
    qint64 rows = 200'000;
    std::chrono::days age{30};
};

/// The SQLite file with the outcome of each message. The first write opens it, and so does the
/// first write after a fault.
///
/// Thread: one at a time.
class JournalStore
{
public:
    explicit JournalStore(const QString &path);
    ~JournalStore();
    JournalStore(const JournalStore &) = delete;
    JournalStore &operator=(const JournalStore &) = delete;

    /// Writes the whole batch or nothing. Throws JournalFault, also if another program has locked
    /// the file for more than a second.
    void write(const JournalBatch &batch);
    /// Removes some of the rows that exceed the limits at the time `now`; takes a few milliseconds.
    /// True: call it again. Throws JournalFault.
    bool prune(const JournalLimits &limits, const QDateTime &now);
    /// Renames a damaged file and the files beside it. Returns the new name; empty on failure.
    QString putAside();
    /// Closes the file without a write-ahead log, so that readers without write permission in the
    /// folder can open it.
    void close();

private:
    /// Distinguishes a file from another one of the same name.
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
    /// Closes the connection without further statements, after a fault.
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
    /// The write-ahead log and its index.
    std::array<Identity, 2> companions = {};
    /// The highest message id in the file.
    int highestMessageId = 0;
    qint64 rows = 0;
    qint64 addedSincePruning = 0;
};
