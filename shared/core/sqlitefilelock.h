#pragma once

#include <QString>
#include <QStringList>

/// Locks a database file against every program that uses SQLite, so that its companion files can be
/// removed. SQLite finds companions by name: it applies a write-ahead log to whatever file has the
/// matching name, which damages a file that the log does not belong to.
///
/// The lock fails while any connection of any process has the file open in WAL mode. Do not take it
/// while this process has such a connection or opens one: on Linux a process loses all its locks on
/// a file when it closes any descriptor of it.
class SqliteFileLock
{
public:
    explicit SqliteFileLock(const QString &path);
    /// Releases the lock.
    ~SqliteFileLock();
    SqliteFileLock(const SqliteFileLock &) = delete;
    SqliteFileLock &operator=(const SqliteFileLock &) = delete;

    bool isTaken() const { return isTaken_; }
    /// The lock failed because a program has the file open.
    bool isInUse() const { return isInUse_; }
    /// The system's error text if the lock failed.
    QString reason() const { return reason_; }

    /// The suffixes of the files that SQLite keeps beside a database.
    static QStringList companions();
    /// An unused name beside `path`, unused also with each companion's suffix: the path, the file's
    /// fate and the time, as in `queues.db.replaced-20260131-120000`.
    static QString keptName(const QString &path, const QString &fate);

private:
    const int file;
    bool isTaken_ = false;
    bool isInUse_ = false;
    QString reason_;
};
